#!/usr/bin/env bash
# Opening a long file (decode plus level pyramid, ready to draw) with sonvale-cli, next to
# ffmpeg's own single-threaded decode to float of the same file, in the same run.
# Usage: open-file.sh CLI MEDIA_DIR
set -euo pipefail
cli=${1:?usage: open-file.sh CLI MEDIA_DIR}
dir=${2:?usage: open-file.sh CLI MEDIA_DIR}
minutes=${SONVALE_BENCH_MINUTES:-60}
raw=$((minutes * 60 * 48000 * 2 * 4))
measure() { # prints "seconds maxRSSkB" of the best of 3 runs
    local best="" rss=""
    for run in 1 2 3; do
        local out
        out=$( { /usr/bin/time -f "%e %M" "$@" >/dev/null 2>/dev/null; } 2>&1 | tail -n1)
        local t=${out% *} m=${out#* }
        if [[ -z "$best" ]] || awk "BEGIN{exit !($t < $best)}"; then best=$t; rss=$m; fi
    done
    echo "$best $rss"
}
printf '%-18s %10s %10s %8s %12s\n' "file" "sonvale s" "ffmpeg s" "ratio" "RSS/raw"
for file in "$dir"/long-${minutes}m-16.wav "$dir"/long-${minutes}m-24.wav \
            "$dir"/long-${minutes}m.flac "$dir"/long-${minutes}m.mp3 "$dir"/long-${minutes}m.m4a; do
    read -r ours oursRss < <(measure "$cli" info "$file")
    read -r theirs _ < <(measure ffmpeg -v error -threads 1 -i "$file" -f f32le -y /dev/null)
    printf '%-18s %10s %10s %8.2f %12.2f\n' "$(basename "$file")" "$ours" "$theirs" \
        "$(awk "BEGIN{print $ours / $theirs}")" "$(awk "BEGIN{print $oursRss * 1024 / $raw}")"
done
