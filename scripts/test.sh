#!/usr/bin/env bash
# The whole test suite: install what is missing, build, and run every test through CTest.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
./scripts/build.sh
ctest --test-dir build --output-on-failure -j "$(nproc)"
