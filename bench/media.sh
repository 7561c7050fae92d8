#!/usr/bin/env bash
# Makes the long benchmark recordings once: 60 minutes of 48 kHz stereo (pink noise on the
# left, a gliding tone on the right) as WAV 16, WAV 24, FLAC, MP3 and AAC.
# Usage: media.sh DIR   (prints nothing when the files exist)
set -euo pipefail
dir=${1:?usage: media.sh DIR}
mkdir -p "$dir"
minutes=${SONVALE_BENCH_MINUTES:-60}
seconds=$((minutes * 60))
src="$dir/long-${minutes}m.wav"
make() { # make OUT ffmpeg-output-args...
    local out=$1; shift
    [[ -s "$out" ]] && return
    echo "making $(basename "$out") ..." >&2
    ffmpeg -v error -y -i "$src" "$@" "$out.part.${out##*.}" && mv "$out.part.${out##*.}" "$out"
}
if [[ ! -s "$src" ]]; then
    echo "making $(basename "$src") ..." >&2
    ffmpeg -v error -y \
        -f lavfi -i "anoisesrc=d=$seconds:c=pink:r=48000:a=0.25:s=7" \
        -f lavfi -i "aevalsrc=0.4*sin(2*PI*(220+110*sin(2*PI*t/30))*t):d=$seconds:s=48000" \
        -filter_complex "[0][1]amerge=inputs=2" -c:a pcm_f32le "$src.part.wav"
    mv "$src.part.wav" "$src"
fi
make "$dir/long-${minutes}m-16.wav" -c:a pcm_s16le
make "$dir/long-${minutes}m-24.wav" -c:a pcm_s24le
make "$dir/long-${minutes}m.flac" -c:a flac
make "$dir/long-${minutes}m.mp3" -c:a libmp3lame -b:a 192k
make "$dir/long-${minutes}m.m4a" -c:a aac -b:a 256k
