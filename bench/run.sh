#!/usr/bin/env bash
# Builds the release preset and runs every benchmark, with the side-by-side comparisons.
# Usage: bench/run.sh [MINUTES]   (length of the long test files, default 60)
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
cd "$here"
minutes=${1:-60}
scripts/setup-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release -j2 --target sonvale_bench sonvale-cli
echo "== micro-benchmarks"
build/release/bench/sonvale_bench
echo "== opening a long file"
bench/load-vs-ffmpeg.sh "$minutes"
echo "== export"
bench/export.sh build/release/sonvale-cli "${SONVALE_BENCH_DIR:-/tmp/sonvale-bench}/$minutes-min/long.wav"
echo "== effects against sox"
bench/effects-vs-sox.sh build/release/sonvale-cli
echo "== opening a folder of 200 short files"
bench/open-folder.sh build/release "${SONVALE_BENCH_DIR:-/tmp/sonvale-bench}"
echo "== saving a session of fifty tracks, ten of them edited ten-minute tracks"
bench/session-save.sh build/release "${SONVALE_BENCH_DIR:-/tmp/sonvale-bench}"
echo "== mixing down a 16-lane session against sox -m"
bench/mixdown-vs-sox.sh 10 build/release/sonvale-cli
echo "== a ten-minute file's spectrogram picture against sox"
bench/spectrogram-vs-sox.sh 10 build/release/sonvale-cli
echo "== transcribing ten minutes of read speech on one core against pocketsphinx_continuous"
bench/transcribe-vs-pocketsphinx.sh 10 build/release/sonvale-cli
echo "== playhead against the captured output"
cmake --build --preset release -j2 --target sonvale_playhead_error
bench/playhead-error.sh build/release
echo "== every knob dragged for a minute while playing"
cmake --build --preset release -j2 --target sonvale_knob_dragging
bench/knob-dragging.sh build/release 60
echo "== the desktop program: canvas repaints at ten zooms, the spectrogram's first paint, effects panel repaints while knobs move"
cmake --build --preset release -j2 --target sonvale_app_bench
QT_QPA_PLATFORM=offscreen build/release/bench/sonvale_app_bench
echo "== the desktop program: start to first paint, a long file to its waveform, memory"
cmake --build --preset release -j2 --target sonvale
bench/window.sh build/release "$minutes"
