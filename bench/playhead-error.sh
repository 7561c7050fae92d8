#!/usr/bin/env bash
# Measures the playhead's error against the captured output, through a private sound server.
#   bench/playhead-error.sh [BUILD_DIR]   (default build/release; needs sonvale_playhead_error)
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$here/build/release}
server=$(mktemp -d)
trap '"$here/scripts/sound-server.sh" stop "$server"; rm -rf "$server"' EXIT
"$here/scripts/sound-server.sh" start "$server"
if [[ -f $server/unavailable ]]; then
    echo "playhead-error: no sound server: $(cat "$server/unavailable")" >&2
    exit 1
fi
set -a
. "$server/env"
set +a
"$build/bench/sonvale_playhead_error" "${@:2}" 2> >(grep -vE '^(ALSA|Cannot connect|jack|JackShm|Expression)' >&2)
