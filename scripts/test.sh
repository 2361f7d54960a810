#!/usr/bin/env bash
# The test command: installs what a fresh machine lacks, configures, builds and runs every test:
# the whole suite in the optimised build, the whole suite again under AddressSanitizer and
# UndefinedBehaviorSanitizer, then the two-thread test under ThreadSanitizer, then each fuzz
# target for a short bounded time (TVX_FUZZ_SECONDS, 30 by default; 0 skips them).
# Exits non-zero on any failure.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
jobs="$(nproc)"
for preset in release asan; do
  cmake --preset "$preset"
  cmake --build --preset "$preset" -j "$jobs"
  ctest --preset "$preset" -j "$jobs"
done
cmake --preset tsan
cmake --build --preset tsan -j "$jobs" --target tracer_robustness_test
ctest --preset tsan
fuzz_seconds="${TVX_FUZZ_SECONDS:-30}"
if ((fuzz_seconds > 0)); then
  bash scripts/fuzz.sh "$fuzz_seconds"
fi
