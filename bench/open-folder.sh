#!/usr/bin/env bash
# Opening a folder of 200 short files: through the editor (background decoding on a pool,
# results committed on the main thread) against `sonvale-cli info` run on each file one after
# another, which decodes each file in full in a process of its own.
# Usage: open-folder.sh BUILD_DIR MEDIA_DIR   (BUILD_DIR holds sonvale-cli and bench/sonvale_bench)
set -euo pipefail
build=${1:?usage: open-folder.sh BUILD_DIR MEDIA_DIR}
dir=${2:?usage: open-folder.sh BUILD_DIR MEDIA_DIR}/short-200
mkdir -p "$dir"
if [[ ! -e "$dir/done" ]]; then
    echo "making 200 ten-second files ..." >&2
    for i in $(seq -w 0 199); do
        case $((10#$i % 4)) in
        0) ext=wav; codec=(-c:a pcm_s16le) ;;
        1) ext=mp3; codec=(-c:a libmp3lame -b:a 192k) ;;
        2) ext=flac; codec=(-c:a flac) ;;
        3) ext=m4a; codec=(-c:a aac -b:a 256k) ;;
        esac
        ffmpeg -v error -y -f lavfi -i "sine=frequency=$((200 + 10#$i * 5)):sample_rate=44100:duration=10" \
            -ac 2 "${codec[@]}" "$dir/clip $i.$ext"
    done
    touch "$dir/done"
fi
start=$(date +%s.%N)
for f in "$dir"/clip*; do "$build/sonvale-cli" info "$f" >/dev/null; done
end=$(date +%s.%N)
cli=$(awk "BEGIN{printf \"%.3f\", $end - $start}")
echo "sonvale-cli info, one file after another: $cli s for 200 files"
results=$(SONVALE_BENCH_FOLDER="$dir" "$build/bench/sonvale_bench" \
    --benchmark_filter='OpenFolderThroughEditor|DecodeFolderOneAfterAnother' --benchmark_format=csv 2>/dev/null)
echo "$results" | grep '^"BM_' | cut -d, -f1,3,5 | tr -d '"'
# The editor's pool has one thread per core.
threads=$(nproc)
editor=$(echo "$results" | awk -F, -v t="$threads" '$1 ~ "OpenFolderThroughEditor/" t "/" {print $3 / 1000}')
inProcess=$(echo "$results" | awk -F, '$1 ~ "DecodeFolderOneAfterAnother" {print $3 / 1000}')
awk -v e="$editor" -v c="$cli" -v p="$inProcess" -v t="$threads" 'BEGIN {
    printf "editor on %d threads: %.3f s; ratio to sonvale-cli one after another %.2f; to decoding one after another in one process %.2f\n", t, e, e / c, e / p }'
