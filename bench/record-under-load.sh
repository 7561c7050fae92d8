#!/usr/bin/env bash
# Records for SECONDS (default 600) with sonvale-cli from a private sound server while a
# full-speed build of the release tree keeps every core busy, then prints what the recording
# lost: input dropped because the disk fell behind (goal: none) and the device's overflows.
#
#   bench/record-under-load.sh [SECONDS]
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-600}
cli=$here/build/release/sonvale-cli
[[ -x $cli ]] || cmake --build --preset release -j"$(nproc)" --target sonvale-cli >/dev/null
dir=$(mktemp -d)
trap '[[ -n ${load:-} ]] && kill -- -"$load" 2>/dev/null; "$here/scripts/sound-server.sh" stop "$dir/server"; rm -rf "$dir"' EXIT
# A copy, since the load below rebuilds the release tree's own.
cp "$cli" "$dir/sonvale-cli"
cli=$dir/sonvale-cli
"$here/scripts/sound-server.sh" start "$dir/server" 2>/dev/null
set -a
. "$dir/server/env"
set +a
# The load: the release tree rebuilt from clean, over and over, in a process group of its own.
setsid bash -c "while cmake --build '$here/build/release' --clean-first -j$(nproc) >/dev/null 2>&1; do :; done" &
load=$!
sleep 5
"$cli" record -o "$dir/take.wav" --seconds "$seconds" --format wav24 | tail -n 1
"$cli" info "$dir/take.wav"
