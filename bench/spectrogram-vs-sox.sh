#!/usr/bin/env bash
# Times `sonvale-cli spectrogram` of a ten-minute stereo 16-bit WAV against `sox IN -n remix -
# spectrogram` drawing the same picture: the channels' average, 1000 x 513 pixels, a
# 1,024-point transform (sox's for 513 rows), a linear frequency axis, no axes or legend
# (sox's -r). Both read the whole file, transform all of it (sox averages the transforms in
# each column, sonvale keeps their loudest) and write a PNG; the figure is the whole
# process's wall time, best of three, and the largest peak resident memory of the three runs.
# Usage: spectrogram-vs-sox.sh [MINUTES] [CLI]   (default 10 minutes, build/release's tool)
set -euo pipefail
minutes=${1:-10}
here=$(cd "$(dirname "$0")/.." && pwd)
cli=${2:-$here/build/release/sonvale-cli}
dir=${SONVALE_BENCH_DIR:-/tmp/sonvale-bench}/spectrogram-$minutes-min
mkdir -p "$dir"
[[ -x $cli ]] || { echo "no $cli: build it first (cmake --build --preset release --target sonvale-cli)" >&2; exit 1; }
seconds=$((minutes * 60))
file=$dir/long.wav
# A slow sweep over pink noise: something to see at every moment.
[[ -f $file ]] || sox -n -r 48000 -c 2 -b 16 "$file" synth "$seconds" sine 100:8000 \
    synth pinknoise mix gain -12

. "$here/bench/best-of-three.sh"
read -r s srss < <(best "$cli" spectrogram "$file" -o "$dir/sonvale.png" --fft 1024 --width 1000 --height 513 --linear)
read -r x xrss < <(best sox "$file" -n remix - spectrogram -x 1000 -y 513 -r -o "$dir/sox.png")
printf '%d min stereo, 1000x513: sonvale %s s (%s MB), sox %s s (%s MB); sonvale/sox %s\n' \
    "$minutes" "$s" "$srss" "$x" "$xrss" "$(awk "BEGIN{printf \"%.2f\", $s / $x}")"
