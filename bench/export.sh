#!/usr/bin/env bash
# Exporting a long file to WAV 24 and AAC with sonvale-cli, next to sox and ffmpeg writing
# the same format from the same source, in the same run.
# Usage: export.sh CLI SOURCE.wav
set -euo pipefail
cli=${1:?usage: export.sh CLI SOURCE.wav}
src=${2:?usage: export.sh CLI SOURCE.wav}
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
seconds() { /usr/bin/time -f "%e" "$@" 2>&1 >/dev/null | tail -n1; }
# The fastest of three runs: writing a large file to disk varies from run to run.
best() { for _ in 1 2 3; do seconds "$@"; done | sort -g | head -n1; }
s=$(best "$cli" export "$src" -o "$out/s.wav" --format wav24)
x=$(best sox "$src" -b 24 "$out/x.wav")
f=$(best ffmpeg -v error -y -i "$src" -c:a pcm_s24le "$out/f.wav")
printf 'WAV 24: sonvale %ss, sox %ss (ratio %.2f), ffmpeg %ss (ratio %.2f)\n' "$s" "$x" \
    "$(awk "BEGIN{print $s / $x}")" "$f" "$(awk "BEGIN{print $s / $f}")"
s=$(seconds "$cli" export "$src" -o "$out/s.m4a" --format aac)
f=$(seconds ffmpeg -v error -y -threads 1 -i "$src" -c:a aac -b:a 256k "$out/f.m4a")
printf 'AAC 256k: sonvale %ss, ffmpeg %ss (ratio %.2f); sox cannot write AAC\n' "$s" "$f" \
    "$(awk "BEGIN{print $s / $f}")"
