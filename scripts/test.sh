#!/usr/bin/env bash
# Installs what is missing, builds Sonvale with its tests (dev preset) and runs every test,
# checks that every C++ file is formatted as .clang-format says, then runs the core, engine
# and command-line tests again under AddressSanitizer (with UndefinedBehaviorSanitizer) and
# ThreadSanitizer.
#
# Arguments go to the dev preset's ctest (`scripts/test.sh -R Loudness`); a run with
# arguments is a focused one and skips the sanitizer builds.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
"$here/scripts/setup-deps.sh"
cd "$here"
cmake --preset dev >/dev/null
cmake --build --preset dev -j2
ctest --preset dev -j2 "$@"
[[ $# -gt 0 ]] && exit 0
scripts/check-format.sh
scripts/test-sanitizers.sh
