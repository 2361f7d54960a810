#!/usr/bin/env bash
# The test command: installs what a fresh machine lacks, configures, builds and runs every test.
# Exits non-zero on any failure.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
jobs="$(nproc)"
cmake --preset release
cmake --build --preset release -j "$jobs"
ctest --preset release -j "$jobs"
