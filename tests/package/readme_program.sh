#!/usr/bin/env bash
# readme_program.sh cmake|pkg-config README PREFIX LIBDIR WORK-DIR CARD: the README's program builds against the
# installed library as the README says, without the card's SDK, and receives quotes from a simulated card.
set -euo pipefail
way=$1
readme=$2
prefix=$3
libdir=$prefix/$4
work_dir=$5
card=$6

fail() {
  printf '%s\n' "$*"
  exit 1
}

# block LANGUAGE: the README's first block in that language.
block() {
  awk -v begin='```'"$1" '$0 == begin { inside = 1; next } inside && $0 == "```" { exit } inside' "$readme"
}

rm -rf "$work_dir"
mkdir -p "$work_dir"
cd "$work_dir"
block cpp >receive.cpp
[[ -s receive.cpp ]] || fail "$readme shows no C++ program"

if [[ $way == cmake ]]; then
  block cmake >CMakeLists.txt
  {
    cmake -G Ninja -S . -B . -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Release >build.log 2>&1 &&
      cmake --build . >>build.log 2>&1
  } || { cat build.log; fail 'the program does not build with find_package'; }
else
  command=$(grep -m 1 -E '^g\+\+ .*pkg-config' "$readme") || fail "$readme shows no pkg-config command"
  PKG_CONFIG_PATH=$libdir/pkgconfig bash -e -c "$command" >build.log 2>&1 ||
    { cat build.log; fail "the program does not build with: $command"; }
fi
! grep -i warning build.log || fail 'the program builds with warnings'

cat >kova.ini <<INI
[config]
device = xilinx$card:1
log_path = $work_dir
INI
cat >scenario.toml <<'TOML'
TOML

processes=()
clean_up() {
  [[ ${#processes[@]} -eq 0 ]] || kill -TERM "${processes[@]}" 2>/dev/null || true
  wait
}
trap clean_up EXIT

# wait_until WHAT COMMAND...: until the command succeeds, while everything that we started lives.
wait_until() {
  local what=$1 process
  shift
  until "$@" >/dev/null 2>&1; do
    for process in "${processes[@]}"; do
      kill -0 "$process" 2>/dev/null || { cat ./*.out; fail "$what: a program ended too early"; }
    done
    sleep 0.05
  done
}

is_on() {
  "$prefix/bin/kova-simcard" status --card "$card" --json | jq -e '.state == "on"'
}

quotes() {
  [[ $(grep -cE '^[A-Za-z0-9_-]+ last [0-9]' program.out) -ge 10 ]]
}

"$prefix/bin/kova-simcard" run --card "$card" --prepared --scenario scenario.toml >card.out 2>&1 &
processes+=($!)
wait_until 'powering the card' is_on

# Installed, the library has no path of its own to the stand-ins: a machine with the card has the maker's objects.
! ./receive kova.ini >without.out 2>&1 || fail 'the program runs although there is no SDK'
LD_LIBRARY_PATH=$libdir:$libdir/kova-sim ./receive kova.ini >program.out 2>&1 &
program=$!
processes+=("$program")
wait_until 'receiving ten quotes' quotes
kill -INT "$program"
wait "$program" || { cat program.out; fail "the program ended with $?"; }
