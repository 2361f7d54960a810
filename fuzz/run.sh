#!/usr/bin/env bash
# Runs one fuzz target for a given time from its committed seed corpus, on a scratch copy of the
# corpus so that the seeds stay as committed, and prints the number of executions.
#   fuzz/run.sh TARGET SECONDS [BUILD_DIR]
# TARGET is reader or api; BUILD_DIR defaults to build/fuzz (the "fuzz" preset), which must hold
# TARGET_fuzz. Exits non-zero when the fuzzer reports a finding; the crashing input is kept in
# the artifacts directory printed at the end.
set -euo pipefail
if (($# < 2)); then
  echo "usage: $0 reader|api SECONDS [BUILD_DIR]" >&2
  exit 2
fi
target="$1"
seconds="$2"
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${3:-$root/build/fuzz}"
case "$target" in
  reader) max_len=65536 ;;
  api) max_len=4096 ;;
  *)
    echo "$0: unknown target '$target' (reader or api)" >&2
    exit 2
    ;;
esac
binary="$build/fuzz/${target}_fuzz"
[ -x "$binary" ] || { echo "$0: no $binary; build the fuzz preset first" >&2; exit 2; }

work="$(mktemp -d "${TMPDIR:-/tmp}/tvx-fuzz-$target.XXXXXX")"
mkdir -p "$work/corpus" "$work/artifacts"
cp "$root/fuzz/corpus/$target/"* "$work/corpus/"
log="$work/fuzz.log"

status=0
ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1:allocator_may_return_null=0}" \
UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}" \
  "$binary" "$work/corpus" \
  -max_total_time="$seconds" -rss_limit_mb=2048 -timeout=10 -max_len="$max_len" \
  -print_final_stats=1 -artifact_prefix="$work/artifacts/" >"$log" 2>&1 || status=$?

execs="$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)"
if ((status != 0)); then
  tail -n 60 "$log" >&2
  echo "fuzz $target: FINDING after ${execs:-?} executions; inputs in $work/artifacts" >&2
  exit "$status"
fi
echo "fuzz $target: ${execs:-0} executions in ${seconds} s, no finding"
rm -rf "$work"
