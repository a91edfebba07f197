#!/usr/bin/env bash
# Builds and runs the benchmarks; some five minutes. What they mean: docs/benchmarks.md.
#
#   scripts/bench.sh [--check] [--repeats N]     --check: fail when a goal is missed
#
# Writes build/bench/report.txt and build/bench/latency.png. Wants a quiet machine with two cores.
set -euo pipefail
cd "$(dirname "$0")/.."

readonly build=build/release
readonly out=build/bench

fail() {
  printf 'bench: %s\n' "$*" >&2
  exit 1
}

check=()
repeats=()
while [[ $# -gt 0 ]]; do
  case $1 in
    --check) check=(--check) ;;
    --repeats)
      [[ ${2:-} =~ ^[1-9][0-9]*$ ]] || fail "--repeats wants a number"
      repeats=("--repeats=$2")
      shift
      ;;
    *) fail "no such option: $1" ;;
  esac
  shift
done

machine() {
  printf 'processor  %s, %s cores\n' "$(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -n 1)" "$(nproc)"
  printf 'host       %s\n' "$(if grep -q '^flags.*\bhypervisor\b' /proc/cpuinfo; then
    echo 'virtual machine'
  else
    echo 'bare metal'
  fi)"
  printf 'kernel     %s\n' "$(uname -sr)"
  printf 'compiler   %s, -O3\n' "$("$(sed -n 's/^CMAKE_CXX_COMPILER:[A-Z]*=//p' $build/CMakeCache.txt)" --version |
    head -n 1)"
  printf 'load       %s (1, 5 and 15 minutes before the run)\n' "$load"
}

# run TITLE PROGRAM ARGUMENT...: its output goes into the report too.
run() {
  printf '\n## %s\n\n' "$1"
  shift
  local result=0
  "$@" || result=$?
  case $result in
    0) ;;
    1) missed=yes ;;
    *) fail "$1 did not run" ;;
  esac
}

./scripts/bootstrap.sh build bench
cmake --preset release -DKOVA_BUILD_BENCH=ON >/dev/null
cmake --build --preset release --target \
  kova_receive_benchmark kova_latency_benchmark kova_snapshot_benchmark kova_table_benchmark kova_recovery_benchmark
mkdir -p "$out"

missed=
load=$(cut -d ' ' -f 1-3 /proc/loadavg)
{
  machine
  run 'One way between two processes' \
    "$build/bench/kova_latency_benchmark" --curves "$out/latency.dat" "${check[@]}" "${repeats[@]}"
  run 'Receive call in one process' \
    "$build/bench/kova_receive_benchmark" --summary "${check[@]}" "${repeats[@]}"
  run 'From the messages of the snapshot to rows' \
    "$build/bench/kova_snapshot_benchmark" --summary "${check[@]}" "${repeats[@]}"
  run 'Contract tables and subscription' \
    "$build/bench/kova_table_benchmark" --summary "${check[@]}" "${repeats[@]}"
  run 'From an event to the first quote behind it' \
    "$build/bench/kova_recovery_benchmark" "${check[@]}" "${repeats[@]}"
} >"$out/report.txt"
cat "$out/report.txt"

gnuplot -e "curves='$out/latency.dat'; picture='$out/latency.png'" bench/latency.gnuplot
printf '\nwritten: %s, %s\n' "$out/report.txt" "$out/latency.png"
[[ -z $missed ]] || fail "a goal was missed"
