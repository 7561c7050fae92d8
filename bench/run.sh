#!/usr/bin/env bash
# Builds the release preset and runs every benchmark, with the side-by-side comparisons.
# SONVALE_BENCH_MINUTES shortens the long files (default 60).
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
cd "$here"
scripts/setup-deps.sh
cmake --preset release >/dev/null
cmake --build --preset release -j2 --target sonvale_bench sonvale-cli
media="$here/build/bench-media"
bench/media.sh "$media"
echo "== micro-benchmarks"
build/release/bench/sonvale_bench "$@"
echo "== opening a long file"
bench/open-file.sh build/release/sonvale-cli "$media"
echo "== export"
bench/export.sh build/release/sonvale-cli "$media"
