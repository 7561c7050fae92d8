#!/usr/bin/env bash
# Checks that every C++ file in the repository is formatted as .clang-format says, and names
# the files that are not. `scripts/check-format.sh --fix` formats them in place.
set -euo pipefail
cd "$(dirname "$0")/.."
command -v clang-format >/dev/null || { echo "check-format: clang-format is not installed (package clang-format)" >&2; exit 1; }
mapfile -t files < <(git ls-files --cached --others --exclude-standard '*.cpp' '*.h')
if [[ ${1:-} == --fix ]]; then
    clang-format -i "${files[@]}"
    exit 0
fi
mapfile -t unformatted < <(clang-format --dry-run "${files[@]}" 2>&1 |
    sed -n 's/^\([^:]*\):[0-9]*:[0-9]*: warning: code should be clang-formatted.*/\1/p' | sort -u)
if [[ ${#unformatted[@]} -gt 0 ]]; then
    echo "check-format: ${#unformatted[@]} files differ from .clang-format (scripts/check-format.sh --fix formats them):" >&2
    printf '  %s\n' "${unformatted[@]}" >&2
    exit 1
fi
echo "check-format: ${#files[@]} files formatted" >&2
