#!/usr/bin/env bash
# Applying each built effect to the same 10-minute stereo 48 kHz file with sonvale-cli apply,
# next to the nearest sox effect writing the same 32-bit float WAV. Prints CPU times, then the
# processing alone (CPU less each tool's cost of reading and writing the file) as a multiple
# of real time, and sonvale's processing time as a fraction of sox's (below 1: faster).
# Usage: effects-vs-sox.sh CLI [WORK_DIR]
set -euo pipefail
cli=${1:?usage: effects-vs-sox.sh CLI [WORK_DIR]}
work=${2:-$(mktemp -d)}
[ -n "${2:-}" ] || trap 'rm -rf "$work"' EXIT
mkdir -p "$work"
minutes=${SONVALE_BENCH_MINUTES:-10}
src="$work/effects-${minutes}m.wav"
if [ ! -f "$src" ]; then
    # Pink noise that swells and falls every few seconds, so that dynamics have work to do.
    sox -n -r 48000 -c 2 -b 16 "$src" synth "$((minutes * 60))" pinknoise \
        tremolo 0.2 90 gain -6
fi
# Wall-clock and CPU (user + system) seconds of a command: the run with the least CPU of
# three, since single runs of a second or less vary by tens of milliseconds.
times() {
    for _ in 1 2 3; do
        /usr/bin/time -f "%e %U %S" "$@" 2>&1 >/dev/null | tail -n1 | awk '{print $1, $2 + $3}'
    done | sort -k2 -g | head -n1
}
seconds=$((minutes * 60))
copyS=0
copyX=0
compare() {
    local name=$1 setup=$2
    shift 2
    local s x
    s=$(times "$cli" apply "$src" -o "$work/s.wav" --effect "$setup")
    x=$(times sox "$src" -e floating-point -b 32 "$work/x.wav" "$@")
    set -- $s $x
    awk -v name="$name" -v s="$2" -v x="$4" -v cs="$copyS" -v cx="$copyX" -v d="$seconds" 'BEGIN {
        ns = s - cs; nx = x - cx; if (ns < 0.01) ns = 0.01; if (nx < 0.01) nx = 0.01
        printf "%-11s cpu sonvale %6.2fs sox %6.2fs   processing: sonvale %7.0fx real time, sox %6.0fx, ratio %.2f\n",
            name, s, x, d / ns, d / nx, ns / nx }'
}
# The cost of reading and writing alone: the analyzer leaves the audio as it is, and sox
# only converts. It is taken off every row below, so they compare the processing itself.
set -- $(times "$cli" apply "$src" -o "$work/s.wav" --effect spectrumAnalyzer) \
    $(times sox "$src" -e floating-point -b 32 "$work/x.wav")
copyS=$2
copyX=$4
printf '%-11s cpu sonvale %6.2fs sox %6.2fs   (reading and writing only)\n' "(copy)" "$copyS" "$copyX"
echo "sox commands: saturation, distortion = overdrive; delay = echos; reverb, pitch, chorus, flanger, phaser by name"
echo "sox commands: equalizer = highpass 80 + equalizer 300/3000 + treble 10k;" \
    "compressor, limiter, noise gate = compand"
compare equalizer "equalizer@Vocal Presence" \
    highpass 80 equalizer 300 1q -2 equalizer 3000 1.2q 3 treble 2 10000 0.71q
compare compressor "compressor" compand 0.01,0.15 6:-60,-60,-18,-18,0,-13.5
compare limiter "limiter" gain 6 compand 0,0.1 -90,-90,-1,-1,0,-1
compare noiseGate "noiseGate" compand 0.001,0.15 -inf,-80.1,-inf,-80,-80,-50.1,-inf,-50,-50
compare saturation "saturation" overdrive 12 20
compare distortion "distortion" overdrive 20 20
compare chorus "chorus" chorus 0.7 0.9 25 0.4 0.8 3 -s 30 0.4 0.8 3 -s 35 0.4 0.8 3 -s
compare flanger "flanger" flanger 2.5 1.8 50 50 0.25 sine 25 lin
compare phaser "phaser" phaser 0.8 0.74 3 0.4 0.5 -s
compare delay "delay" echos 0.8 0.9 350 0.4 700 0.16
compare reverb "reverb" reverb 50 50 70 100 20
compare pitch "pitchShifter@Octave Up" pitch 1200
