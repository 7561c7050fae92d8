#!/usr/bin/env bash
# Saving a session of fifty tracks, ten of them edited ten-minute stereo tracks held in memory
# (2.3 GB of audio): the first save against `cp -r` of the same audio in the same run, saving
# again with nothing changed, and the automatic store's save on the main thread and after it.
# Usage: session-save.sh BUILD_DIR [DIR]   (BUILD_DIR holds bench/sonvale_bench; DIR, on a
# real disk with 10 GB free, defaults to BUILD_DIR; a tmpfs DIR is replaced by BUILD_DIR)
set -euo pipefail
build=${1:?usage: session-save.sh BUILD_DIR [DIR]}
dir=${2:-$build}
mkdir -p "$dir"
dir=$(cd "$dir" && pwd)
if [[ $(stat -f -c %T "$dir") == tmpfs ]]; then
    echo "$dir is in memory (tmpfs); writing to $build instead" >&2
    dir=$build
fi
free=$(df -P -k "$dir" | awk 'NR == 2 {print int($4 / 1048576)}')
if ((free < 10)); then
    echo "session-save.sh: needs 10 GB free in $dir, has $free GB" >&2
    exit 1
fi
trap 'rm -rf "$dir/session-save"' EXIT
echo "making 2.3 GB of audio in $dir/session-save ..." >&2
results=$(SONVALE_SESSION_BENCH_DIR="$dir" "$build/bench/sonvale_bench" \
    --benchmark_filter='^BM_Session' --benchmark_format=csv 2>/dev/null)
# The fastest of three runs of each, in milliseconds; a benchmark that failed its own check
# reports its error instead, and the script fails.
echo "$results" | awk -F, '
    $1 !~ /^"BM_Session/ { next }
    $9 == "true" { name = $1; gsub(/"|\/.*/, "", name); print name ": " $10; bad[name] = failed = 1; next }
    $1 ~ /_min"$/ { name = $1; gsub(/"|\/.*/, "", name); if (!(name in bad)) ms[name] = $3 }
    END {
        copy = ms["BM_SessionCopyEditedAudio"]; synced = ms["BM_SessionCopyEditedAudioSynced"]
        save = ms["BM_SessionFirstSave"]
        if (save != "" && copy != "" && synced != "")
            printf "first save: %.0f ms; cp -r of the same audio %.0f ms (ratio %.2f), cp -r and fsync %.0f ms (ratio %.2f)\n",
                save, copy, save / copy, synced, save / synced
        if ("BM_SessionSaveUnchanged" in ms)
            printf "saving again unchanged: %.1f ms (goal under 100 ms); no audio rewritten, no snapshot added\n",
                ms["BM_SessionSaveUnchanged"]
        if ("BM_SessionStoreSave" in ms && "BM_SessionStoreWrite" in ms)
            printf "automatic store: %.2f ms on the main thread (goal under 20 ms), %.0f ms writing in the background\n",
                ms["BM_SessionStoreSave"], ms["BM_SessionStoreWrite"]
        exit failed
    }'
