#!/usr/bin/env bash
# debug_information.sh LIBRARY: its debug information lies beside it in a file of its own, and it says so.
set -euo pipefail
library=$1
debug=$library.debug

fail() {
  printf '%s\n' "$*"
  exit 1
}

# sections FILE
sections() {
  readelf --section-headers --wide "$1" | sed -n 's/^ *\[ *[0-9]*\] *\(\.[^ ]*\).*/\1/p'
}

build_id() {
  readelf --notes "$1" | sed -n 's/.*Build ID: //p'
}

[[ -f $debug ]] || fail "there is no $debug"
! sections "$library" | grep -qx '\.debug_info' || fail "$library still carries debug information"
sections "$debug" | grep -qx '\.debug_info' || fail "$debug holds no debug information"
sections "$library" | grep -qx '\.gnu_debuglink' || fail "$library does not say where its debug information is"
readelf --string-dump=.gnu_debuglink "$library" | grep -qF "$(basename "$debug")" ||
  fail "$library names another file than $(basename "$debug")"
[[ $(build_id "$library") == "$(build_id "$debug")" ]] || fail "$debug belongs to another build"
