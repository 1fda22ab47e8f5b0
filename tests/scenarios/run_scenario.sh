#!/bin/sh
# Runs one scenario and compares what it prints (and any error, with the exit status) with the
# expected file beside it. With MIRLO_UPDATE_SCENARIOS=1 it rewrites the expected file instead.
# usage: run_scenario.sh MIRLO-SIM SCENARIO-DIR NAME.scenario
sim="$1"; dir="$2"; name="$3"
expected="$dir/${name%.scenario}.expected"
actual=$(mktemp) || exit 1
trap 'rm -f "$actual"' EXIT
# Run from the folder so that errors name the script by its short name.
(cd "$dir" && "$sim" "$name" >"$actual" 2>&1; status=$?; [ $status -ne 0 ] && echo "[exit status $status]" >>"$actual"; true)
if [ "${MIRLO_UPDATE_SCENARIOS:-0}" = 1 ]; then
  cp "$actual" "$expected" && echo "rewrote $expected"
  exit 0
fi
if [ ! -f "$expected" ]; then
  echo "no expected output: $expected (run with MIRLO_UPDATE_SCENARIOS=1 to create it)"
  cat "$actual"
  exit 1
fi
diff -u --label "expected: ${name%.scenario}.expected" --label "actual: mirlo-sim $name" "$expected" "$actual"
