#!/usr/bin/env bash
# Drags every knob of a thirteen-effect chain while playing through a private sound server.
#   bench/knob-dragging.sh [BUILD_DIR [SECONDS]]   (default build/release and 60 s)
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$here/build/release}
server=$(mktemp -d)
trap '"$here/scripts/sound-server.sh" stop "$server"; rm -rf "$server"' EXIT
"$here/scripts/sound-server.sh" start "$server"
if [[ -f $server/unavailable ]]; then
    echo "knob-dragging: no sound server: $(cat "$server/unavailable")" >&2
    exit 1
fi
set -a
. "$server/env"
set +a
"$build/bench/sonvale_knob_dragging" "${@:2}" 2> >(grep -vE '^(ALSA|Cannot connect|jack|JackShm|Expression)' >&2)
