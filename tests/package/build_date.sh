#!/usr/bin/env bash
# build_date.sh COMPILE-COMMANDS SOURCE: the library says when it was built, and SOURCE_DATE_EPOCH decides when that
# was: two builds of one tree are then the same.
set -euo pipefail
commands=$1
source=$2

command=$(jq -r --arg file "$source" 'first(.[] | select(.file == $file) | .command)' "$commands")
directory=$(jq -r --arg file "$source" 'first(.[] | select(.file == $file) | .directory)' "$commands")
[[ -n $command ]] || { printf 'the build does not compile %s\n' "$source"; exit 1; }

# Not optimised, the text stands in the assembler text as it is.
assembler=$(
  cd "$directory"
  # shellcheck disable=SC2086 # the words of a command line
  SOURCE_DATE_EPOCH=1000000000 ${command%% -o *} -O0 -g0 -fno-lto -S -o - "$source"
)
if ! grep -qF '"Sep  9 2001 01:46:40 V1.1.1.33' <<<"$assembler"; then
  printf 'built at 1000000000 the version is\n%s\n' "$(grep -F 'V1.1.1.33' <<<"$assembler" || echo 'not there')"
  exit 1
fi
