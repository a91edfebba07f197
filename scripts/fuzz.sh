#!/usr/bin/env bash
# Builds the fuzzers and runs them, as many at a time as there are cores. What each of them reads: docs/testing.md.
#
#   scripts/fuzz.sh [SECONDS [TARGET...]]     60 seconds for each target; every target of fuzz/
#
# Below build/fuzz/runs/TARGET: corpus/ grows from run to run, findings/ holds the inputs that crashed, log says
# why. Fails when one crashed.
set -euo pipefail
cd "$(dirname "$0")/.."

fail() {
  printf 'fuzz: %s\n' "$*" >&2
  exit 1
}

seconds=${1:-60}
[[ $seconds =~ ^[1-9][0-9]*$ ]] || fail "the first argument is a number of seconds"
[[ $# -eq 0 ]] || shift
targets=("$@")
if [[ $# -eq 0 ]]; then
  for folder in fuzz/corpus/*/; do
    targets+=("$(basename "$folder")")
  done
fi
for target in "${targets[@]}"; do
  [[ -d fuzz/corpus/$target ]] || fail "no such target: $target"
done

# number PATTERN LOG: the last number that follows the pattern.
number() {
  sed -nE "s/.*$1 *([0-9]+).*/\1/p" "$2" | tail -n 1
}

# row TARGET RESULT LOG
row() {
  printf '%-14s %11s %8s %7s %7s   %s\n' "$1" "$(number stat::number_of_executed_units: "$3")" \
    "$(number stat::average_exec_per_sec: "$3")" "$(number cov: "$3")" "$(number corp: "$3")" "$2"
}

reason() {
  grep -m 1 -E 'does not hold:|runtime error:|ERROR: ' "$1" || echo 'see the log'
}

run_target() {
  local target=$1 runs=$PWD/build/fuzz/runs/$1 kept=$PWD/fuzz/corpus/$1 program=$PWD/build/fuzz/fuzz/kova_fuzz_$1
  local dictionary=()
  [[ ! -f fuzz/dictionaries/$target.dict ]] || dictionary=("-dict=$PWD/fuzz/dictionaries/$target.dict")
  mkdir -p "$runs/corpus" "$runs/findings" "$runs/work"
  # What the library writes stays in work/; only the fuzzer itself speaks on standard error.
  if (cd "$runs/work" && exec "$program" "-max_total_time=$seconds" -timeout=20 -print_final_stats=1 \
    "-artifact_prefix=$runs/findings/" "${dictionary[@]}" "$runs/corpus" "$kept") >/dev/null 2>"$runs/log"; then
    row "$target" ok "$runs/log"
  else
    row "$target" "CRASH: $(reason "$runs/log") (${runs#"$PWD/"})" "$runs/log"
    touch "$runs/crashed"
  fi
  rm -rf "$runs/work"
}

./scripts/bootstrap.sh build test fuzz
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz
rm -f build/fuzz/runs/*/crashed

printf '\n%-14s %11s %8s %7s %7s   %s\n' target executions 'per s' edges corpus result
for target in "${targets[@]}"; do
  while [[ $(jobs -rp | wc -l) -ge $(nproc) ]]; do
    wait -n
  done
  run_target "$target" &
done
wait
[[ -z $(find build/fuzz/runs -name crashed) ]] || fail "the inputs that crashed lie in build/fuzz/runs/*/findings"
