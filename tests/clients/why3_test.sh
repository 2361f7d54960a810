#!/usr/bin/env bash
# why3 proves a theory through tvx-trace answering with z3 (in both trace modes), through the
# drop-in (a link named z3, tracing into TVX_TRACE_DIR) and through z3 itself: the verdicts must
# be the same goal by goal, and every trace tvx wrote must replay in z3 with the answers tvx gave
# (the drop-in's: without an error). Usage: why3_test.sh TVX_TRACE THEORY.mlw
set -euo pipefail
tvx="$(realpath "$1")"
theory="$2"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
mkdir "$work/traces" "$work/shim" "$work/dropin-traces"
ln -s "$tvx" "$work/shim/z3"

# tvx-trace as a why3 prover: answers the task through z3, keeps the trace and the answers.
cat >"$work/tvx-prover" <<EOF
#!/usr/bin/env bash
set -u
mode="\$1"
task="\$2"
name="$work/traces/\$mode-\$(basename "\$task" .smt2)"
opts=()
[ "\$mode" = global ] && opts=(--global-decls)
"$tvx" --solver z3 "\${opts[@]}" --trace "\$name.trace" "\$task" | tee "\$name.answers"
EOF
chmod +x "$work/tvx-prover"

prover() { # name, command
  printf '\n[prover]\ncommand = "%s"\ndriver = "z3_471"\nname = "%s"\nshortcut = "%s"\nversion = "1"\n' \
    "$2" "$1" "$1"
}
{
  printf '[main]\ndatadir = "/usr/share/why3"\nlibdir = "/usr/lib/ocaml/why3"\nmagic = 14\n'
  # No memory limit: a sanitizer build reserves far more address space than it uses.
  printf 'memlimit = 0\nrunning_provers_max = 1\ntimelimit = 20\n'
  prover bare "z3 -smt2 %f"
  prover scoped "$work/tvx-prover scoped %f"
  prover global "$work/tvx-prover global %f"
  prover dropin "$work/shim/z3 -smt2 %f"
} >"$work/why3.conf"

# "Goal g." then "Prover result is: Valid (0.01s, 123 steps)." become "g. Valid".
verdicts() {
  HOME="$work" TVX_TRACE_DIR="$work/dropin-traces" why3 -C "$work/why3.conf" prove -P "$1" "$theory" 2>&1 |
      awk '/^Goal /{g=$2} /^Prover result is:/{print g, $4}' || true
}
expected="$(verdicts bare)"
echo "bare z3:"
echo "$expected"
grep -q Valid <<<"$expected" || {
  echo "bare z3 proved nothing: the test itself is broken"
  exit 1
}
status=0
for mode in scoped global dropin; do
  got="$(verdicts "$mode")"
  if [ "$got" != "$expected" ]; then
    echo "tvx-trace ($mode traces) gave other verdicts:"
    diff <(echo "$expected") <(echo "$got") || true
    status=1
  fi
done

# Each trace replays in z3 with tvx's answers.
count=0
for trace in "$work"/traces/*.trace; do
  [ -e "$trace" ] || break
  answers="${trace%.trace}.answers"
  if ! replayed="$(z3 -smt2 -T:20 "$trace")" || [ "$replayed" != "$(cat "$answers")" ]; then
    echo "replaying $(basename "$trace") in z3 gave other answers:"
    diff <(echo "$replayed") "$answers" || true
    status=1
  fi
  count=$((count + 1))
done
dropins=0
for trace in "$work"/dropin-traces/*.smt2; do
  [ -e "$trace" ] || break
  if z3 -smt2 -T:20 "$trace" | grep -q '^(error'; then
    echo "replaying the drop-in's $(basename "$trace") in z3 gave an error"
    status=1
  fi
  dropins=$((dropins + 1))
done
echo "$count traces replayed, and $dropins of the drop-in's"
[ "$count" -gt 0 ] && [ "$dropins" -gt 0 ] || status=1
exit "$status"
