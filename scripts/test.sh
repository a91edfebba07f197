#!/usr/bin/env bash
# Installs what is missing, builds everything and runs the tests.
#
#   scripts/test.sh [PRESET [CTEST-ARGUMENT...]]     PRESET: release (default), debug, asan, tsan, coverage
#
# Fails when a test fails, and also when the tests leave a process, a file or shared memory behind.
set -euo pipefail
cd "$(dirname "$0")/.."

preset=${1:-release}
[[ $# -eq 0 ]] || shift

# What a run could leave outside the folder for temporary files that it is given.
leftovers() {
  find /dev/shm -maxdepth 1 -name 'kova*'
  find /tmp -maxdepth 1 -name '.shfe_*'
  find . \( -path ./.git -o -path './build/*/tests/package' \) -prune -o -name 'kova_u50_*.log' -print
}

# Processes that run a program of this build.
running() {
  local process program
  for process in /proc/[0-9]*; do
    program=$(readlink "$process/exe" 2>/dev/null) || continue
    [[ $program != "$PWD/build/$preset/"* ]] || printf 'process %s: %s\n' "${process#/proc/}" "$program"
  done
}

# The thread sanitizer wants the address space laid out as it expects: without randomisation, where that can be
# switched off.
plainly=()
if [[ $preset == tsan ]] && setarch "$(uname -m)" --addr-no-randomize true 2>/dev/null; then
  plainly=(setarch "$(uname -m)" --addr-no-randomize)
fi

./scripts/bootstrap.sh build test
before=$(leftovers | sort)
"${plainly[@]}" cmake --preset "$preset" >/dev/null
"${plainly[@]}" cmake --build --preset "$preset"

TMPDIR=$(mktemp -d "${TMPDIR:-/tmp}/kova-tests.XXXXXX")
export TMPDIR
trap 'rm -rf "$TMPDIR"' EXIT
result=0
"${plainly[@]}" ctest --test-dir "build/$preset" --output-on-failure --no-tests=error --parallel "$(nproc)" "$@" ||
  result=$?

left=$(
  comm -13 <(printf '%s\n' "$before") <(leftovers | sort)
  find "$TMPDIR" -mindepth 1 -maxdepth 1
  running
)
if [[ -n $left ]]; then
  printf '\nThe tests left behind:\n%s\n' "$left" >&2
  exit 1
fi
exit "$result"
