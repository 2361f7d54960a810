#!/usr/bin/env bash
# Installs the peers when missing, builds the benchmarks in Release, runs them all and prints
# one table (also written as bench/results/table.tsv, with the plot bench/results/cost_per_term.svg).
#   TVX_BENCH_MAX_N       largest N of the size sweeps (default 1000000)
#   TVX_BENCH_REPETITIONS runs of each tracer benchmark; the table keeps the fastest (default 3)
#   TVX_BENCH_BUILD_DIR   build directory (default build/bench, the "bench" preset's)
#   TVX_BENCH_READER_MB   size of the generated reader script in MB (default 100; 0 skips)
#   TVX_BENCH_CORPUS      directory of .smt2 scripts for the reader (default ../shared/corpus/smt2)
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="${TVX_BENCH_BUILD_DIR:-$root/build/bench}"
results="$root/bench/results"
work="${TMPDIR:-/tmp}/tvx-bench"

bash "$root/scripts/deps.sh" libz3-dev libcvc5-dev libbenchmark-dev python3

cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DTVX_BUILD_BENCHMARKS=ON \
  -DTVX_BUILD_TESTS=OFF -DTVX_BUILD_TOOLS=ON >/dev/null
targets=(tracer_bench)
for t in z3_peer cvc5_peer tvx-trace; do
  if ninja -C "$build" -t targets all 2>/dev/null | grep -q "^$t:"; then targets+=("$t"); fi
done
ninja -C "$build" "${targets[@]}"

mkdir -p "$results/raw" "$work"
export TVX_BENCH_TMP="$work"
jsons=()
for prog in tracer_bench z3_peer cvc5_peer; do
  exe="$build/bench/$prog"
  [ -x "$exe" ] || { echo "skipping $prog (not built)"; continue; }
  echo "running $prog ..."
  repetitions=1
  [ "$prog" = tracer_bench ] && repetitions="${TVX_BENCH_REPETITIONS:-3}"
  "$exe" --benchmark_repetitions="$repetitions" --benchmark_out="$results/raw/$prog.json" \
    --benchmark_out_format=json >/dev/null ||
    echo "$prog exited with status $? (its results so far are kept)"
  jsons+=("$results/raw/$prog.json")
done
if [ -x "$build/tools/tvx-trace" ] && [ "${TVX_BENCH_READER_MB:-100}" != 0 ]; then
  echo "running the reader ..."
  python3 "$root/bench/reader_bench.py" "$build/tools/tvx-trace" "${TVX_BENCH_CORPUS:-$root/../shared/corpus/smt2}" \
    "$work" "$results/raw/reader.json" "${TVX_BENCH_READER_MB:-100}" ||
    echo "the reader workload failed; left out"
  [ -f "$results/raw/reader.json" ] && jsons+=("$results/raw/reader.json")
fi
python3 "$root/bench/report.py" "$results" "${jsons[@]}" | tee "$results/table.txt"
python3 "$root/bench/plot.py" "$results/table.tsv" "$results/cost_per_term.svg"
