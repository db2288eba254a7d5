#!/usr/bin/env bash
# The main job: install what is missing, build, and run the command-line tool.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/install-deps.sh
./scripts/build.sh
./build/tools/ondrel/ondrel params
