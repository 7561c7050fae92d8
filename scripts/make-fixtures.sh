#!/usr/bin/env bash
# Makes the audio files the tests decode, with real encoders. Usage: make-fixtures.sh DIR
set -euo pipefail
dir=${1:?usage: make-fixtures.sh DIR}
mkdir -p "$dir"
