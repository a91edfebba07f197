#!/usr/bin/env bash
# install.sh BUILD-DIR PREFIX: installs every component; together they are the whole install tree.
set -euo pipefail
build_dir=$1
prefix=$2

rm -rf "$prefix"
for component in library debug sim tools; do
  cmake --install "$build_dir" --prefix "$prefix" --component "$component" >/dev/null
done
listed() {
  (cd "$1" && find . ! -type d | LC_ALL=C sort)
}
by_component=$(listed "$prefix")

rm -rf "$prefix"
cmake --install "$build_dir" --prefix "$prefix" >/dev/null
whole=$(listed "$prefix")

if [[ $by_component != "$whole" ]]; then
  printf 'files that belong to no component:\n'
  comm -13 <(printf '%s\n' "$by_component") <(printf '%s\n' "$whole")
  exit 1
fi
headers=$(cd "$prefix/include" && echo *)
if [[ $headers != KovaShfeMdApi.h ]]; then
  printf 'the public header is the only one that is installed; found: %s\n' "$headers"
  exit 1
fi
