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
echo "sonvale-cli info, one file after another: $(awk "BEGIN{printf \"%.2f\", $end - $start}") s for 200 files"
SONVALE_BENCH_FOLDER="$dir" "$build/bench/sonvale_bench" \
    --benchmark_filter='OpenFolderThroughEditor|DecodeFolderOneAfterAnother'
