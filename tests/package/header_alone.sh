#!/usr/bin/env bash
# header_alone.sh COMPILER INCLUDE-DIR: the public header compiles by itself, in every C++ an application may use.
set -euo pipefail
compiler=$1
include_dir=$2

for standard in c++11 c++14 c++17 c++20; do
  printf '#include <KovaShfeMdApi.h>\n#include <KovaShfeMdApi.h>\n' |
    "$compiler" -std=$standard -pedantic -Wall -Wextra -Werror -I "$include_dir" -x c++ -fsyntax-only - ||
    { printf 'KovaShfeMdApi.h does not compile alone: %s -std=%s\n' "$compiler" "$standard"; exit 1; }
done
