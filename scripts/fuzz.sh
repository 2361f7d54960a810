#!/usr/bin/env bash
# Builds the libFuzzer targets (the "fuzz" preset, clang with AddressSanitizer and
# UndefinedBehaviorSanitizer) and runs each for a bounded time from its seed corpus.
#   scripts/fuzz.sh [SECONDS [TARGET...]]
# SECONDS defaults to 30 per target; TARGET is reader or api, both by default. Exits non-zero on
# the first finding.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-30}"
shift || true
targets=("$@")
((${#targets[@]})) || targets=(reader api)
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$(nproc)"
for target in "${targets[@]}"; do
  bash fuzz/run.sh "$target" "$seconds" build/fuzz
done
