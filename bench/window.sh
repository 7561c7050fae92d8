#!/usr/bin/env bash
# The desktop program from start to its first painted window, and from start to a long file's
# waveform drawn, with the program's resident memory at that point against the raw float size
# of the audio. Runs offscreen with settings of its own.
#   bench/window.sh [BUILD_DIR [MINUTES]]   (default build/release, 60 minutes)
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$here/build/release}
minutes=${2:-60}
dir=${SONVALE_BENCH_DIR:-/tmp/sonvale-bench}/$minutes-min
mkdir -p "$dir"
if [[ ! -f $dir/long.wav ]]; then
    # The same file bench/load-vs-ffmpeg.sh makes.
    ffmpeg -nostdin -hide_banner -v error -y -f lavfi \
        -i "aevalsrc=0.5*sin(2*PI*440*t)+0.1*sin(2*PI*3000*t)|0.4*sin(2*PI*(200+30*mod(t\,10))*t):s=48000:d=$((minutes * 60))" \
        -c:a pcm_s16le "$dir/long.wav"
fi
home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
run() {
    local start end
    start=$(date +%s.%N)
    local line
    line=$(HOME=$home XDG_CONFIG_HOME=$home/config XDG_DATA_HOME=$home/data QT_QPA_PLATFORM=offscreen SONVALE_EXIT_WHEN_DRAWN=1 \
        "$build/sonvale" "$@" 2>/dev/null)
    end=$(date +%s.%N)
    echo "$line; whole run $(awk "BEGIN{printf \"%.3f\", $end - $start}") s"
}
echo "no file: $(run)"
result=$(run "$dir/long.wav")
echo "$minutes-minute stereo WAV: $result"
frames=$((minutes * 60 * 48000))
raw=$(awk "BEGIN{printf \"%.1f\", $frames * 2 * 4 / 1e6}")
rss=$(echo "$result" | sed -E 's/.*resident ([0-9.]+) MB.*/\1/')
awk -v r="$rss" -v w="$raw" 'BEGIN{printf "resident %.0f MB against %.0f MB of raw float audio: %.2fx\n", r * 1.048576, w, r * 1.048576 / w}'
