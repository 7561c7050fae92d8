#!/usr/bin/env bash
# Times opening a long stereo 48 kHz file (decode plus level pyramid, through
# `sonvale-cli info`) against `ffmpeg -threads 1 -i FILE -f f32le /dev/null`, with peak
# resident memory, for WAV 16-bit, FLAC, MP3 and AAC. The ratio is sonvale's wall time over
# ffmpeg's; the goals are at most 0.6 for WAV and FLAC and 0.9 for MP3, with RSS/raw under 1.3.
# Usage: load-vs-ffmpeg.sh [MINUTES] [CLI]   (default 10 minutes, build/release's tool)
# Test files are made once per length under ${SONVALE_BENCH_DIR:-/tmp/sonvale-bench}.
set -euo pipefail
minutes=${1:-10}
here=$(cd "$(dirname "$0")/.." && pwd)
cli=${2:-$here/build/release/sonvale-cli}
dir=${SONVALE_BENCH_DIR:-/tmp/sonvale-bench}/$minutes-min
mkdir -p "$dir"
[[ -x $cli ]] || { echo "no $cli: build it first (cmake --build --preset release --target sonvale-cli)" >&2; exit 1; }

seconds=$((minutes * 60))
ff() { ffmpeg -nostdin -hide_banner -v error -y "$@"; }
if [[ ! -f $dir/long.wav ]]; then
    # A tone pair with a slow sweep: cheap to make, not trivially compressible.
    ff -f lavfi -i "aevalsrc=0.5*sin(2*PI*440*t)+0.1*sin(2*PI*3000*t)|0.4*sin(2*PI*(200+30*mod(t\,10))*t):s=48000:d=$seconds" \
       -c:a pcm_s16le "$dir/long.wav"
fi
[[ -f $dir/long.flac ]] || ff -i "$dir/long.wav" -c:a flac "$dir/long.flac"
[[ -f $dir/long.mp3 ]] || ff -i "$dir/long.wav" -c:a libmp3lame -b:a 192k "$dir/long.mp3"
[[ -f $dir/long.m4a ]] || ff -i "$dir/long.wav" -c:a aac -b:a 256k "$dir/long.m4a"

raw_kb=$((seconds * 48000 * 2 * 4 / 1024))
printf '%d min stereo 48 kHz; raw float %d MB\n' "$minutes" $((raw_kb / 1024))
runs=${SONVALE_BENCH_RUNS:-5}
printf 'best of %d runs each, alternating; CPU = user + system seconds of that run\n' "$runs"
timed() { # runs the command once; prints "wall cpu kilobytes"
    /usr/bin/time -o "$dir/.time" -f '%e %U %S %M' "$@" >/dev/null 2>&1
    local wall user system kb
    read -r wall user system kb < "$dir/.time"
    echo "$wall $(awk "BEGIN{print $user + $system}") $kb"
}
# On a virtual machine that hands freed memory back to its host after a second or two, the
# first touch of memory not used for a while costs far more than on real hardware (the host
# faults in and clears every page again). Each timed run of sonvale therefore follows an
# untimed one that takes and frees as much memory, so the figures measure the program, not
# the host; the cost of cold memory is shown once here.
sleep 8
read -r cold _ _ < <(timed "$cli" info "$dir/long.wav")
read -r warm _ _ < <(timed "$cli" info "$dir/long.wav")
printf 'wav after 8 s idle: %s s; straight after: %s s (the difference is the host touching new memory)\n' "$cold" "$warm"
printf '%-6s %10s %10s %10s %10s %7s %11s %10s %8s\n' file "sonvale s" "CPU" "ffmpeg s" "CPU" ratio \
    "sonvale MB" "ffmpeg MB" "RSS/raw"
for f in long.wav long.flac long.mp3 long.m4a; do
    best_s="" best_f=""
    for ((i = 0; i < runs; i++)); do
        "$cli" info "$dir/long.wav" >/dev/null
        read -r w c k < <(timed "$cli" info "$dir/$f")
        if [[ -z $best_s ]] || awk "BEGIN{exit !($w < ${best_s%% *})}"; then best_s="$w $c $k"; fi
        read -r w c k < <(timed ffmpeg -nostdin -v error -threads 1 -i "$dir/$f" -f f32le -y /dev/null)
        if [[ -z $best_f ]] || awk "BEGIN{exit !($w < ${best_f%% *})}"; then best_f="$w $c $k"; fi
    done
    read -r sw sc sk <<< "$best_s"
    read -r fw fc fk <<< "$best_f"
    printf '%-6s %10s %10s %10s %10s %7s %11d %10d %8s\n' "${f#long.}" "$sw" "$sc" "$fw" "$fc" \
        "$(awk "BEGIN{printf \"%.2f\", $sw / $fw}")" \
        $((sk / 1024)) $((fk / 1024)) "$(awk "BEGIN{printf \"%.3f\", $sk / $raw_kb}")"
done
