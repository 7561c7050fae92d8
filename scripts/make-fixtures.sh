#!/usr/bin/env bash
# Makes the audio files the tests decode, with real encoders (ffmpeg, sox, espeak-ng),
# and ffmpeg's own decode of each as interleaved 32-bit float (NAME.f32) for comparison.
# Usage: make-fixtures.sh DIR. Does nothing when DIR already holds this script's output.
set -euo pipefail
dir=${1:?usage: make-fixtures.sh DIR}
checksum=$(sha256sum "${BASH_SOURCE[0]}" | cut -d' ' -f1)
mkdir -p "$dir"
cd "$dir"

stamp=.stamp
[[ -f $stamp && $(cat "$stamp") == "$checksum" ]] && exit 0
rm -f ./* "$stamp"

ff() { ffmpeg -nostdin -hide_banner -v error -y "$@"; }

# The test signal: 3 s of stereo at 48 kHz (144,000 frames, not a multiple of AAC's
# 1,024-frame packets): a 440 Hz sine on the left, a 200 Hz -> 1.1 kHz chirp on the right.
ff -f lavfi -i "aevalsrc=0.5*sin(2*PI*440*t)|0.4*sin(2*PI*(200+150*t)*t):s=48000:d=3" \
   -c:a pcm_f32le source.f32.wav

# Every format from the one source, in one ffmpeg run.
ff -i source.f32.wav \
   -c:a pcm_s16le stereo-s16.wav \
   -c:a pcm_s24le stereo-s24.wav \
   -c:a pcm_f32le stereo-f32.wav \
   -c:a flac stereo.flac \
   -c:a libmp3lame -b:a 192k stereo.mp3 \
   -c:a libmp3lame -q:a 2 stereo-vbr.mp3 \
   -c:a aac -b:a 192k stereo.m4a \
   -c:a aac -b:a 192k -movflags +faststart stereo-faststart.m4a \
   -c:a alac stereo-alac.m4a \
   -c:a libopus -b:a 128k stereo.opus \
   -c:a libvorbis -q:a 5 stereo.ogg \
   -c:a wmav2 -b:a 128k stereo.wma \
   -c:a pcm_s16le stereo-pcm.mka
sox -V1 -D source.f32.wav -b 16 stereo-s16.aiff
sox -V1 -D source.f32.wav -b 24 stereo-s24.aiff

# Other shapes: mono at 44.1 kHz, six channels, 8 kHz, 96 kHz, speech.
ff -f lavfi -i "sine=frequency=1000:sample_rate=44100:duration=2" -af volume=0.5 \
   -c:a pcm_s16le mono.wav -c:a libmp3lame -b:a 96k mono.mp3
ff -f lavfi -i "aevalsrc=0.1*sin(2*PI*220*t)|0.2*sin(2*PI*330*t)|0.3*sin(2*PI*440*t)|0.4*sin(2*PI*550*t)|0.5*sin(2*PI*660*t)|0.6*sin(2*PI*770*t):s=48000:d=1.5:c=5.1" \
   -c:a pcm_s16le six.wav -c:a aac -b:a 384k six.m4a
ff -f lavfi -i "sine=frequency=300:sample_rate=8000:duration=2" -c:a pcm_s16le low-8k.wav
ff -f lavfi -i "aevalsrc=0.3*sin(2*PI*20000*t)|0.3*sin(2*PI*1000*t):s=96000:d=1" \
   -c:a flac -sample_fmt s32 high-96k.flac
ff -f lavfi -i "anullsrc=r=48000:cl=stereo" -t 1 -c:a pcm_s16le silence.wav
# Raw AAC (ADTS): no container duration, no edit list.
ff -i stereo-s16.wav -c:a aac -b:a 128k stereo.aac
# A VBR MP3 without a Xing header (loud, then quiet): its size suggests far fewer frames
# than it holds.
ff -f lavfi -i "anoisesrc=d=0.5:a=0.5:r=44100:seed=7" -f lavfi -i "anullsrc=r=44100:cl=mono" \
   -filter_complex "[1]atrim=0:4[quiet];[0][quiet]concat=n=2:v=0:a=1" \
   -c:a libmp3lame -q:a 0 -write_xing 0 vbr-no-header.mp3
# Raw AAC whose length FFmpeg estimates from the bit rate of its start: 23 s of noise, then
# 40 s of near-silence, so it holds far more than the estimate (over a million frames).
ff -f lavfi -i "anoisesrc=d=23:a=0.5:r=48000:seed=3" -f lavfi -i "anullsrc=r=48000:cl=mono" \
   -filter_complex "[1]atrim=0:40[quiet];[0][quiet]concat=n=2:v=0:a=1" -c:a aac -b:a 96k growing.aac
espeak-ng -w speech.wav "Sonvale opens audio files and keeps every sample."
# Read speech from pocketsphinx's test data, as a 44.1 kHz stereo FLAC: 3 s of silence, "go
# forward ten meters" (0.46 to 2.1 s into its clip), 2 s of silence, "he was not an ill disposed
# young man".
speech=/usr/share/pocketsphinx/test/data
sox -V1 -D -r 16000 -e signed -b 16 -c 1 "$speech/goforward.raw" -r 16000 -c 1 goforward.tmp.wav pad 3 2
sox -V1 -D goforward.tmp.wav "$speech/librivox/sense_and_sensibility_01_austen_64kb-0880.wav" \
    -r 44100 -c 2 read-speech.flac
rm goforward.tmp.wav

# A film: a small picture track next to the sound, and one with no sound at all.
ff -f lavfi -i "color=c=blue:s=64x48:r=10:d=2" -f lavfi -i "sine=frequency=500:sample_rate=48000:duration=2" \
   -map 0:v -map 1:a -c:v mpeg4 -c:a aac video.mp4 \
   -map 0:v -c:v mpeg4 video-silent.mp4

# Broken files. A WAV whose header promises 144,000 frames but holds about half of them.
head -c 300000 stereo-s16.wav > truncated.wav
head -c 200000 stereo.flac > truncated.flac
# An M4A with its index in front, cut off partway through the audio.
head -c $(( $(stat -c %s stereo-faststart.m4a) * 3 / 5 )) stereo-faststart.m4a > truncated.m4a
# A FLAC whose header claims 2^36 - 1 frames (hundreds of gigabytes of samples) in front
# of three seconds of audio: the total-samples field ends STREAMINFO's 18th byte.
cp stereo.flac huge-header.flac
printf '\xff\xff\xff\xff' | dd of=huge-header.flac bs=1 seek=22 conv=notrunc status=none
printf "\\x$(printf '%02x' $(( $(od -An -tu1 -j21 -N1 huge-header.flac) | 0x0f )))" |
    dd of=huge-header.flac bs=1 seek=21 conv=notrunc status=none
# A second of a loud tone, then a second of silence.
sox -n -r 48000 -c 2 -b 16 tone-then-silence.wav synth 1 sine 440 gain -3 pad 0 1
# A WAV with a header and no frames.
sox -n -r 48000 -c 2 -b 16 empty.wav trim 0 0
# Noise bytes (sox's fixed seed makes them the same every time) under audio names.
sox -R -n -t raw -r 8000 -c 1 -e signed -b 16 noise.raw synth 2 whitenoise
cp noise.raw noise.mp3
mv noise.raw noise.wav

# ffmpeg's decode of every file that has audio, as interleaved 32-bit float, in one run.
inputs=() outputs=()
for f in *.wav *.aiff *.flac *.mp3 *.m4a *.aac *.opus *.ogg *.wma *.mka video.mp4; do
    case $f in noise.* | empty.wav | source.f32.wav) continue ;; esac
    outputs+=(-map "$(( ${#inputs[@]} / 2 )):a:0" -f f32le -c:a pcm_f32le "$f.f32")
    inputs+=(-i "$f")
done
ffmpeg -nostdin -v fatal -y "${inputs[@]}" "${outputs[@]}"
rm -f source.f32.wav

echo "$checksum" > "$stamp"
