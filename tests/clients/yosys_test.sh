#!/usr/bin/env bash
# yosys-smtbmc checks a design through tvx-trace standing in for z3 (a link named z3 earlier on
# PATH, tracing into TVX_TRACE_DIR, in both trace modes) and through z3 itself: in its basic,
# bit-vector (-stbv) and datatype (-stdt) encodings, each in BMC, induction (-i) and cover (-c)
# mode, with a property over an allconst wire (so the solver gets quantifiers; the basic
# encoding takes none, so there the wire is a constant), for a design that holds and one that
# fails. The logs must be the same line by line, timestamps aside, and every session's trace
# must replay in z3, and in cvc5 with the same check answers.
# Usage: yosys_test.sh TVX_TRACE DIR_OF_counter.sv
set -euo pipefail
tvx="$(realpath "$1")"
src="$2"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
mkdir "$work/shim" "$work/traces"

# yosys-smtbmc starts "z3 -smt2 -in": the link takes z3's place earlier on PATH.
ln -s "$tvx" "$work/shim/z3"

status=0
checks=0
for variant in good bad; do
  defines=""
  [ "$variant" = bad ] && defines="-DBAD"
  for encoding in basic stdt stbv; do
    model="$work/$variant-$encoding.smt2"
    flag="-$encoding"
    extra=""
    [ "$encoding" = basic ] && flag="" && extra="-DNOFORALL"
    yosys -q -p "read_verilog -formal $defines $extra $src/counter.sv; prep -top top; write_smt2 $flag -wires $model"
    for mode in bmc induction cover; do
      opts=()
      [ "$mode" = induction ] && opts=(-i)
      [ "$mode" = cover ] && opts=(-c)
      expected="$(yosys-smtbmc -s z3 -t 8 "${opts[@]}" "$model" 2>&1 | sed 's/^##  *[0-9:]*  //' || true)"
      grep -q "Status: " <<<"$expected" || {
        echo "bare z3 gave no status for $variant/$encoding/$mode: the test itself is broken"
        echo "$expected"
        exit 1
      }
      for global in 0 1; do
        # Labels that cvc5 reads back: it reserves those starting with '.'.
        got="$(TVX_TRACE_DIR="$work/traces" TVX_TRACE_GLOBAL_DECLS=$global \
          TVX_TRACE_CONFIG="printer.defines_prefix=d_" PATH="$work/shim:$PATH" \
          yosys-smtbmc -s z3 -t 8 "${opts[@]}" "$model" 2>&1 | sed 's/^##  *[0-9:]*  //' || true)"
        checks=$((checks + 1))
        if [ "$got" != "$expected" ]; then
          echo "through the drop-in (global declarations: $global), $variant/$encoding/$mode logs differ:"
          diff <(echo "$expected") <(echo "$got") || true
          status=1
        fi
      done
    done
  done
done
echo "$checks sessions compared"

# Each session's trace replays in z3 without an error, and in cvc5 with z3's check answers.
checks_of() { grep -E '^(sat|unsat|unknown)$' || true; }
count=0
for trace in "$work"/traces/*.smt2; do
  [ -e "$trace" ] || break
  z3_out="$(z3 -smt2 -T:60 "$trace" || true)"
  if grep -q '^(error' <<<"$z3_out"; then
    echo "replaying $(basename "$trace") in z3 gave an error:"
    grep '^(error' <<<"$z3_out" | head -5
    status=1
  fi
  if command -v cvc5 >/dev/null; then
    # cvc5 names the global-declarations option in full.
    cvc5_out="$(sed 's/^(set-option :global-decls true)$/(set-option :global-declarations true)/' \
      "$trace" | timeout 60 cvc5 --incremental --lang smt2 2>/dev/null || true)"
    if [ "$(checks_of <<<"$cvc5_out")" != "$(checks_of <<<"$z3_out")" ]; then
      echo "replaying $(basename "$trace") in cvc5 gave other answers than in z3"
      status=1
    fi
  fi
  count=$((count + 1))
done
echo "$count traces replayed"
[ "$count" -ge "$checks" ] || status=1
exit "$status"
