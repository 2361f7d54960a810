#!/usr/bin/env bash
# The main job: installs what is missing, builds tvx, and traces the bundled example script,
# printing the trace. Extra arguments go to tvx-trace (try --global-decls).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)" >/dev/null
if [ -x build/release/tools/tvx-trace ]; then
  exec build/release/tools/tvx-trace "$@" examples/example.smt2
else
  exec build/release/examples/trace_session /dev/stdout
fi
