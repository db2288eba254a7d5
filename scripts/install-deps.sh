#!/usr/bin/env bash
# Installs the Debian packages Ondrel 4 builds and tests with. Safe to run again: it only
# installs what is missing, and does nothing at all when everything is present.
set -euo pipefail

packages=(
    # build
    g++ cmake ninja-build pkg-config
    # VST3 SDK sources (compiled from the system path, never copied)
    juce-modules-source
    # editor
    libcairo2-dev libx11-dev zlib1g-dev fonts-dejavu-core
    # command-line tool
    libsndfile1-dev
    # tests, benchmarks, fuzzing and formatting
    libgtest-dev libgmock-dev libbenchmark-dev libfftw3-dev
    sox flac xvfb xdotool imagemagick
    clang libclang-rt-14-dev clang-format
)

missing=()
for package in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
        missing+=("$package")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

echo "Installing: ${missing[*]}"
sudo=()
if [ "$(id -u)" -ne 0 ]; then
    sudo=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -q
"${sudo[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
