#!/usr/bin/env bash
# Times `sonvale-cli mixdown` of a 16-lane session (each lane one long mono 16-bit WAV at its
# own gain, all into the master) against `sox -m` mixing the same sixteen files with the same
# gains to a 32-bit float WAV. Both read and decode the files and write the mix; the figure is
# the whole process's wall time, best of three, the multiple of real time and the largest peak
# resident memory of the three runs.
# Usage: mixdown-vs-sox.sh [MINUTES] [CLI]   (default 10 minutes, build/release's tool)
set -euo pipefail
minutes=${1:-10}
here=$(cd "$(dirname "$0")/.." && pwd)
cli=${2:-$here/build/release/sonvale-cli}
dir=${SONVALE_BENCH_DIR:-/tmp/sonvale-bench}/mixdown-$minutes-min
mkdir -p "$dir"
[[ -x $cli ]] || { echo "no $cli: build it first (cmake --build --preset release --target sonvale-cli)" >&2; exit 1; }
seconds=$((minutes * 60))
frames=$((seconds * 48000))

tracks="" lanes="" inputs=()
for i in $(seq 0 15); do
    file=$dir/track$i.wav
    [[ -f $file ]] || sox -n -r 48000 -c 1 -b 16 "$file" synth "$seconds" sine $((110 + 37 * i)) gain -30
    gain=$(awk "BEGIN{printf \"%.1f\", -($i % 4) * 1.5}")
    [[ -n $tracks ]] && tracks+=", " && lanes+=", "
    tracks+="{\"path\": \"$file\", \"gainDB\": 0, \"verticalZoom\": 1, \"cursor\": 0, \"viewportStart\": 0, \"samplesPerPoint\": 0, \"viewportWidth\": 0, \"markers\": []}"
    lanes+="{\"name\": \"Lane $i\", \"gainDB\": $gain, \"pan\": 0, \"isMuted\": false, \"clips\": [{\"name\": \"Take\", \"source\": {\"track\": {\"_0\": $i}}, \"sourceStart\": 0, \"length\": $frames, \"start\": 0}]}"
    # sox -m sums its inputs after each input's own -v factor; mono into both channels as the
    # mixer plays a mono clip.
    inputs+=(-v "$(awk "BEGIN{printf \"%.9f\", 10 ^ ($gain / 20)}")" "$file")
done
mkdir -p "$dir/Show.sonvale"
cat > "$dir/Show.sonvale/Session.json" <<JSON
{"format": 2, "session": {"tracks": [$tracks], "selectedIndices": [], "loopPlayback": false,
 "timeline": {"sampleRate": 48000, "cursor": 0, "isShowing": true, "lanes": [$lanes]}}}
JSON

. "$here/bench/best-of-three.sh"
read -r s srss < <(best "$cli" mixdown "$dir/Show.sonvale" -o "$dir/sonvale.wav")
read -r x xrss < <(best sox -m "${inputs[@]}" -e floating-point -b 32 "$dir/sox.wav" remix 1 1)
printf '%d min, 16 lanes: sonvale %s s (%sx real time, %s MB), sox -m %s s (%sx, %s MB); sonvale/sox %s\n' \
    "$minutes" "$s" "$(awk "BEGIN{printf \"%.0f\", $seconds / $s}")" "$srss" \
    "$x" "$(awk "BEGIN{printf \"%.0f\", $seconds / $x}")" "$xrss" "$(awk "BEGIN{printf \"%.2f\", $s / $x}")"
