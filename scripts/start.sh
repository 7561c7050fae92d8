#!/usr/bin/env bash
# Installs what is missing, builds Sonvale (release) and starts it with the files given.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
"$here/scripts/setup-deps.sh"
cd "$here"
cmake --preset release >/dev/null
cmake --build --preset release -j2 --target sonvale sonvale-cli | grep -v '^\[' || true
if [[ -z "${DISPLAY:-}" && -z "${WAYLAND_DISPLAY:-}" ]]; then
    echo "No display is available to show Sonvale's window; use the command-line tool instead: $here/build/release/sonvale-cli --help (e.g. sonvale-cli info FILE)"
    exit 0
fi
exec "$here/build/release/sonvale" "$@"
