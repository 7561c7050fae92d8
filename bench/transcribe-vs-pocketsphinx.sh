#!/usr/bin/env bash
# Speech transcription on one core: `sonvale-cli transcribe` of a long recording of read speech
# (44.1 kHz stereo FLAC, so its conversion counts) against pocketsphinx's own
# `pocketsphinx_continuous` with its default search on the same speech as the 16 kHz mono WAV it
# needs. Prints each one's speed as a multiple of real time, its peak resident memory, and its
# word error rate on the read speech of pocketsphinx's test data against the reference
# transcripts (each clip transcribed alone).
# Usage: transcribe-vs-pocketsphinx.sh [MINUTES] [CLI]   (default 10 minutes, build/release's tool)
set -euo pipefail
minutes=${1:-10}
here=$(cd "$(dirname "$0")/.." && pwd)
cli=${2:-$here/build/release/sonvale-cli}
data=/usr/share/pocketsphinx/test/data
dir=${SONVALE_BENCH_DIR:-/tmp/sonvale-bench}/transcribe-$minutes-min
mkdir -p "$dir"
[[ -x $cli ]] || { echo "no $cli: build it first (cmake --build --preset release --target sonvale-cli)" >&2; exit 1; }
command -v pocketsphinx_continuous >/dev/null || { echo "pocketsphinx_continuous is missing: scripts/setup-deps.sh installs it" >&2; exit 1; }

# The clips with their reference words.
clips=() refs=()
sox -V1 -r 16000 -e signed -b 16 -c 1 "$data/goforward.raw" "$dir/goforward.wav"
clips+=("$dir/goforward.wav") refs+=("go forward ten meters")
while read -r line; do
    id=$(sed -E 's/.*\((.*)\)$/\1/' <<<"$line")
    clips+=("$data/librivox/$id.wav")
    refs+=("$(sed -E 's/<\/?s>//g; s/\(.*\)$//; s/^ +| +$//g' <<<"$line")")
done < "$data/librivox/transcription"

# The long recording: the clips one after another, a second of silence after each, repeated.
long=$dir/long.flac long16=$dir/long-16k.wav
if [[ ! -f $long ]]; then
    sox -V1 -n -r 16000 -c 1 -b 16 "$dir/gap.wav" trim 0 1
    round=()
    for clip in "${clips[@]}"; do round+=("$clip" "$dir/gap.wav"); done
    sox -V1 "${round[@]}" "$dir/round.wav"
    repeats=$(awk "BEGIN{print int($minutes * 60 / $(soxi -D "$dir/round.wav")) + 1}")
    sox -V1 "$dir/round.wav" "$long16" repeat $((repeats - 1)) trim 0 $((minutes * 60))
    sox -V1 "$long16" -r 44100 -c 2 "$long"
fi
seconds=$(soxi -D "$long")

timed() { # prints wall seconds and peak resident MB of one run on core 0
    /usr/bin/time -o "$dir/.time" -f '%e %M' taskset -c 0 "$@" >/dev/null 2>&1
    read -r t m < "$dir/.time"
    echo "$t $((m / 1024))"
}
read -r st srss < <(timed "$cli" transcribe "$long")
read -r pt prss < <(timed pocketsphinx_continuous -infile "$long16" -logfn /dev/null)

wer() { # reference and hypothesis files, one utterance per line: word error rate in %
    python3 - "$1" "$2" <<'PY'
import sys
refs = [l.split() for l in open(sys.argv[1])]
hyps = [l.split() for l in open(sys.argv[2])]
errors = words = 0
for r, h in zip(refs, hyps):
    d = list(range(len(h) + 1))
    for i in range(1, len(r) + 1):
        prev, d[0] = d[0], i
        for j in range(1, len(h) + 1):
            prev, d[j] = d[j], min(d[j] + 1, d[j - 1] + 1, prev + (r[i - 1] != h[j - 1]))
    errors += d[len(h)]; words += len(r)
print(f"{100 * errors / words:.1f}")
PY
}
printf '%s\n' "${refs[@]}" > "$dir/reference.txt"
: > "$dir/sonvale.txt"; : > "$dir/peer.txt"
for clip in "${clips[@]}"; do
    "$cli" transcribe "$clip" 2>/dev/null | cut -d' ' -f2- | tr '\n' ' ' >> "$dir/sonvale.txt" || true
    echo >> "$dir/sonvale.txt"
    pocketsphinx_continuous -infile "$clip" -logfn /dev/null 2>/dev/null | tr '\n' ' ' >> "$dir/peer.txt" || true
    echo >> "$dir/peer.txt"
done

awk -v m="$minutes" -v s="$seconds" -v st="$st" -v pt="$pt" -v srss="$srss" -v prss="$prss" \
    -v sw="$(wer "$dir/reference.txt" "$dir/sonvale.txt")" -v pw="$(wer "$dir/reference.txt" "$dir/peer.txt")" \
    'BEGIN {
        printf "%d min of read speech on one core: sonvale %.1f s (%.1fx real time, %d MB), ", m, st, s / st, srss
        printf "pocketsphinx_continuous %.1f s (%.1fx, %d MB); sonvale/peer time %.2f\n", pt, s / pt, prss, st / pt
        printf "word error rate on the test data read speech: sonvale %s %%, pocketsphinx_continuous %s %%\n", sw, pw
    }'
