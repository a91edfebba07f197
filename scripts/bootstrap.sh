#!/usr/bin/env bash
# Installs what this Debian 12 machine still lacks.
#
#   scripts/bootstrap.sh [build] [test] [lint] [bench] [fuzz]     without an argument: everything
#
# What is installed already is left alone; when nothing is missing, neither the network nor root is needed.
set -euo pipefail

# Everything is named, also what another package would only recommend: nothing comes in by recommendation.
build=(binutils cmake g++ git jq libcli11-dev libfmt-dev libpcap-dev libtomlplusplus-dev ninja-build
  nlohmann-json3-dev pkg-config)
test=(clang libgmock-dev libgtest-dev python3 tcpdump)
lint=(clang clang-format clang-tidy git python3 shellcheck)
bench=(gnuplot-nox libbenchmark-dev libboost-dev)
fuzz=(clang libclang-rt-dev lld llvm)

fail() {
  printf 'bootstrap: %s\n' "$*" >&2
  exit 1
}

# quietly COMMAND...: shows what it said only when it failed.
quietly() {
  local said
  if ! said=$("$@" 2>&1); then
    printf '%s\n' "$said" >&2
    return 1
  fi
}

is_installed() {
  [[ $(dpkg-query --show --showformat='${db:Status-Status}' "$1" 2>/dev/null) == installed ]]
}

[[ $# -gt 0 ]] || set -- build test lint bench fuzz
wanted=()
for set in "$@"; do
  case $set in
    build) wanted+=("${build[@]}") ;;
    test) wanted+=("${test[@]}") ;;
    lint) wanted+=("${lint[@]}") ;;
    bench) wanted+=("${bench[@]}") ;;
    fuzz) wanted+=("${fuzz[@]}") ;;
    *) fail "no such set of packages: $set (build, test, lint, bench, fuzz)" ;;
  esac
done

mapfile -t wanted < <(printf '%s\n' "${wanted[@]}" | sort --unique)
command -v dpkg-query >/dev/null || fail "this is no Debian machine; install by hand: ${wanted[*]}"
missing=()
for package in "${wanted[@]}"; do
  is_installed "$package" || missing+=("$package")
done
[[ ${#missing[@]} -gt 0 ]] || exit 0

as_root=()
if [[ $EUID -ne 0 ]]; then
  command -v sudo >/dev/null ||
    fail "only root can install what is missing, and there is no sudo here: ${missing[*]}"
  as_root=(sudo)
fi

printf 'bootstrap: installing %s\n' "${missing[*]}"
quietly "${as_root[@]}" apt-get update -q ||
  fail "apt-get update failed (above); needed are: ${missing[*]}"
quietly "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
  apt-get install -q -y --no-install-recommends "${missing[@]}" ||
  fail "apt-get install failed (above); needed are: ${missing[*]}"
