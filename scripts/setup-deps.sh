#!/usr/bin/env bash
# Installs what Sonvale needs to build, run and test on Debian 12. Safe to run again:
# it asks apt only for packages that are missing and says nothing when none are. Then it
# builds the model engines once (scripts/build-engines.sh).
set -euo pipefail

packages=(
    # toolchain
    g++ cmake ninja-build pkgconf git ccache clang-format openssl
    # libraries
    qt6-base-dev qt6-svg-dev qt6-tools-dev libgl-dev
    libavformat-dev libavcodec-dev libswresample-dev libavutil-dev
    libsndfile1-dev libflac-dev libsoxr-dev librubberband-dev portaudio19-dev libasound2-dev libfftw3-dev libpng-dev
    nlohmann-json3-dev libsigc++-3.0-dev
    # speech recognition with its US English model, so transcription works out of the box
    libpocketsphinx-dev libsphinxbase-dev pocketsphinx-en-us
    # tests and benchmarks
    libgtest-dev libgmock-dev libbenchmark-dev libebur128-dev
    ffmpeg sox libsox-fmt-all espeak-ng flac pocketsphinx-testdata pocketsphinx
    pulseaudio pulseaudio-utils libasound2-plugins alsa-utils dbus
    xdg-user-dirs procps time desktop-file-utils xvfb xauth xdotool
)

missing=()
for package in "${packages[@]}"; do
    status=$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null || true)
    [[ "$status" == "install ok installed" ]] || missing+=("$package")
done
# npm fetches the pinned sources of the model engines; any install of it will do.
command -v npm >/dev/null || missing+=(npm)
engines() { "$(dirname "$0")/build-engines.sh" >/dev/null; }
if [[ ${#missing[@]} -eq 0 ]]; then
    engines
    exit 0
fi

sudo=()
if [[ $(id -u) -ne 0 ]]; then
    command -v sudo >/dev/null || { echo "Sonvale: installing ${missing[*]} needs root (or sudo)." >&2; exit 1; }
    sudo=(sudo)
fi
echo "Installing ${#missing[@]} missing packages: ${missing[*]}" >&2
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -qq
"${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
engines
