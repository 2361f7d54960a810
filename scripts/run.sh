#!/usr/bin/env bash
# The main job: installs what is missing, builds tvx, and answers the bundled example script
# through the z3 engine, printing the solver's responses and then the trace recorded on the way
# (build/example.trace.smt2). Extra arguments go to tvx-trace (try --global-decls, or
# --solver cvc5).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)" >/dev/null
trace=build/example.trace.smt2
echo ";; responses of tvx-trace --solver z3 examples/example.smt2"
build/release/tools/tvx-trace --solver z3 --trace "$trace" "$@" examples/example.smt2
echo
echo ";; the trace of that session ($trace)"
cat "$trace"
