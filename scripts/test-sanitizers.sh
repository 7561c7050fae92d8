#!/usr/bin/env bash
# Builds the core, the command-line tool and their tests under AddressSanitizer (with
# UndefinedBehaviorSanitizer) and under ThreadSanitizer, and runs the tests; any report fails
# the test that caused it. The window is not built here (Qt is not instrumented).
#
#   scripts/test-sanitizers.sh [asan|tsan ...]    (both when none is named)
set -euo pipefail
cd "$(dirname "$0")/.."
presets=("$@")
[[ ${#presets[@]} -gt 0 ]] || presets=(asan tsan)
for preset in "${presets[@]}"; do
    echo "== $preset" >&2
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset" -j2 --target sonvale_tests sonvale-cli
    # Under ThreadSanitizer, rendering every preset of every effect through the command-line tool
    # takes the better part of a minute on one thread, and a language model's answers half a
    # minute in ggml's own threads, whose races it sets aside: AddressSanitizer covers both.
    skip=()
    [[ $preset == tsan ]] &&
        skip=(-E '^(ApplyCommand\.EveryPresetOfEveryEffect|LlamaLanguageModel\.GrammarHolds)')
    ctest --preset "$preset" -j2 --timeout 600 "${skip[@]}"
done
