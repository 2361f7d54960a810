#!/usr/bin/env bash
# Installs the peers when missing, builds the benchmarks in Release, runs them all and prints
# one table (also written as bench/results/table.tsv, with the plot bench/results/cost_per_term.svg).
# Every figure comes from this run: bench/results/raw is emptied first, a program that fails is
# reported as an error, and the table prints MISSING where its measurements are absent.
#   TVX_BENCH_MAX_N       largest N of the size sweeps (default 1000000)
#   TVX_BENCH_REPETITIONS runs of each tracer benchmark; the table keeps the fastest (default 3)
#   TVX_BENCH_BUILD_DIR   build directory (default build/bench, the "bench" preset's)
#   TVX_BENCH_READER_MB   size of the generated reader script in MB (default 20; 0 skips)
#   TVX_BENCH_CORPUS      directory of .smt2 scripts for the reader, used when it exists
#                         (default ../shared/corpus/smt2)
#   TVX_BENCH_ENV_CALLS   calls of the environment's small-call session (default 100000)
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="${TVX_BENCH_BUILD_DIR:-$root/build/bench}"
results="$root/bench/results"
work="${TMPDIR:-/tmp}/tvx-bench"

bash "$root/scripts/deps.sh" libz3-dev libcvc5-dev libbenchmark-dev python3 yosys

cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTVX_BUILD_BENCHMARKS=ON \
  -DTVX_BUILD_TESTS=OFF -DTVX_BUILD_TOOLS=ON >/dev/null
# Every program is expected: deps.sh installed z3 and cvc5, so a program missing from the build
# means its library was not found, which is an error, not a row to leave out. The target list
# is read whole before it is searched (a pipe into `grep -q` would end ninja early and fail).
known="$(ninja -C "$build" -t targets all)"
targets=()
for t in tracer_bench solver_bench z3_peer cvc5_peer tvx-trace; do
  if grep -q "^$t:" <<<"$known"; then
    targets+=("$t")
  else
    echo "error: $t is not a target of the build; is its solver library installed?" >&2
    exit 1
  fi
done
ninja -C "$build" "${targets[@]}"

rm -rf "$results/raw"
mkdir -p "$results/raw" "$work"
export TVX_BENCH_TMP="$work"
export TVX_BENCH_MAX_N="${TVX_BENCH_MAX_N:-1000000}"
export TVX_BENCH_READER_MB="${TVX_BENCH_READER_MB:-20}"
export TVX_BENCH_ENV_CALLS="${TVX_BENCH_ENV_CALLS:-100000}"
jsons=()
for prog in tracer_bench solver_bench z3_peer cvc5_peer; do
  exe="$build/bench/$prog"
  [ -x "$exe" ] || { echo "error: $prog is not built; its rows are missing"; continue; }
  echo "running $prog ..."
  repetitions=1
  [ "$prog" = tracer_bench ] && repetitions="${TVX_BENCH_REPETITIONS:-3}"
  status=0
  "$exe" --benchmark_repetitions="$repetitions" --benchmark_out="$results/raw/$prog.json" \
    --benchmark_out_format=json >/dev/null || status=$?
  [ "$status" = 0 ] || echo "error: $prog exited with status $status; what it did not measure is missing"
  [ -s "$results/raw/$prog.json" ] && jsons+=("$results/raw/$prog.json")
done
if [ "$TVX_BENCH_READER_MB" != 0 ]; then
  if [ -x "$build/tools/tvx-trace" ]; then
    echo "running the reader ..."
    python3 "$root/bench/reader_bench.py" "$build/tools/tvx-trace" \
      "${TVX_BENCH_CORPUS:-$root/../shared/corpus/smt2}" "$work" "$results/raw/reader.json" \
      "$TVX_BENCH_READER_MB" || echo "error: the reader workload failed; its rows are missing"
    [ -s "$results/raw/reader.json" ] && jsons+=("$results/raw/reader.json")
  else
    echo "error: tvx-trace is not built; the reader's rows are missing"
  fi
fi
python3 "$root/bench/report.py" "$results" "${jsons[@]}" | tee "$results/table.txt"
python3 "$root/bench/plot.py" "$results/table.tsv" "$results/cost_per_term.svg"
# The drop-in solver under a real client (its line follows the table).
python3 "$root/bench/dropin_bench.py" "$build/tools/tvx-trace" "$root/tests/clients/counter.sv" |
  tee -a "$results/table.txt" || echo "error: the drop-in benchmark failed; its line is missing"
