#!/usr/bin/env bash
# Installs what is missing, builds Sonvale with its tests (dev preset) and runs every test.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
"$here/scripts/setup-deps.sh"
cd "$here"
cmake --preset dev >/dev/null
cmake --build --preset dev -j2
ctest --preset dev -j2 "$@"
