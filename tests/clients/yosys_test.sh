#!/usr/bin/env bash
# yosys-smtbmc checks a design through tvx-trace standing in for z3 (in both trace modes) and
# through z3 itself, in its datatype mode (-stdt) and its bit-vector mode (-stbv), with a
# property over an allconst wire (so the solver gets quantifiers), for a design that holds and
# one that fails: the logs must be the same line by line, timestamps aside, and every trace must
# replay in z3.
# Usage: yosys_test.sh TVX_TRACE DIR_OF_counter.sv
set -euo pipefail
tvx="$1"
src="$2"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
mkdir "$work/shim" "$work/traces"

# yosys-smtbmc starts "z3 -smt2 -in": the shim takes z3's place earlier on PATH.
cat >"$work/shim/z3" <<EOF
#!/usr/bin/env bash
exec "$tvx" --solver z3 \${TVX_MODE_OPTS:-} --trace "$work/traces/\$\$.trace" -
EOF
chmod +x "$work/shim/z3"

status=0
checks=0
for variant in good bad; do
  defines=""
  [ "$variant" = bad ] && defines="-DBAD"
  for mode in stdt stbv; do
    model="$work/$variant-$mode.smt2"
    yosys -q -p "read_verilog -formal $defines $src/counter.sv; prep -top top; write_smt2 -$mode -wires $model"
    expected="$(yosys-smtbmc -s z3 -t 8 "$model" | sed 's/^##  *[0-9:]*  //' || true)"
    grep -q "Status: PASSED\|Status: FAILED" <<<"$expected" || {
      echo "bare z3 gave no verdict for $variant/$mode: the test itself is broken"
      echo "$expected"
      exit 1
    }
    for opts in "" "--global-decls"; do
      got="$(TVX_MODE_OPTS="$opts" PATH="$work/shim:$PATH" yosys-smtbmc -s z3 -t 8 "$model" |
        sed 's/^##  *[0-9:]*  //' || true)"
      checks=$((checks + 1))
      if [ "$got" != "$expected" ]; then
        echo "through tvx-trace $opts, $variant/$mode logs differ:"
        diff <(echo "$expected") <(echo "$got") || true
        status=1
      fi
    done
  done
done
echo "$checks sessions compared"

# Each trace replays in z3 without an error.
count=0
for trace in "$work"/traces/*.trace; do
  [ -e "$trace" ] || break
  if z3 -smt2 -T:60 "$trace" | grep -q '^(error'; then
    echo "replaying a trace in z3 gave an error:"
    z3 -smt2 "$trace" | grep '^(error' | head -5
    status=1
  fi
  count=$((count + 1))
done
echo "$count traces replayed"
[ "$count" -eq "$checks" ] || status=1
exit "$status"
