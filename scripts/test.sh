#!/usr/bin/env bash
# The whole test suite: install what is missing, build, and run every test through CTest; then the
# unit and DSP tests once more under AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
./scripts/build.sh
ctest --test-dir build --output-on-failure -j "$(nproc)"

cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DONDREL_SANITIZE=ON -DONDREL_BUILD_BENCH=OFF > /dev/null
cmake --build build-asan
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 LSAN_OPTIONS=suppressions="$PWD/tests/support/lsan.supp" \
    ctest --test-dir build-asan --output-on-failure -j "$(nproc)" -L 'unit|dsp|integration' -LE slow
