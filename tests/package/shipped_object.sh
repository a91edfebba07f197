#!/usr/bin/env bash
# shipped_object.sh LIBRARY: the installed library's names, what it needs, and what it must never call.
set -euo pipefail
library=$1

result=0
wrong() {
  printf '%s\n' "$*"
  result=1
}

# compare WHAT EXPECTED FOUND
compare() {
  [[ $2 == "$3" ]] || wrong "$1:" $'\n  expected: '"${2//$'\n'/ }" $'\n  found:    '"${3//$'\n'/ }"
}

# dynamic TAG: the values of that tag in the dynamic section, sorted.
dynamic() {
  readelf --dynamic --wide "$library" | sed -nE "s/.*\(($1)\).*\[(.*)\]/\2/p" | LC_ALL=C sort
}

compare 'file name' libkova_u50.so.1.1.1 "$(basename "$library")"
compare 'SONAME' libkova_u50.so.1 "$(dynamic SONAME)"
for link in libkova_u50.so libkova_u50.so.1; do
  compare "where $link leads" "$(realpath "$library")" "$(realpath "$(dirname "$library")/$link")"
done
compare 'RPATH and RUNPATH' '' "$(dynamic 'RPATH|RUNPATH')"
compare 'NEEDED' 'libc.so.6
libenyx-cores-c.so.6
libenyx-hw-c.so.5
libgcc_s.so.1
libstdc++.so.6' "$(dynamic NEEDED)"

# It starts no thread and no program, and loads nothing behind the loader's back.
forbidden='pthread_create|thrd_create|_ZNSt6thread.*|_ZNSt7__future_base.*|clone|clone3|fork|vfork|daemon
|system|popen|posix_spawnp?|exec[lv]p?e?|execvpe|fexecve|dlopen|dlmopen|dlsym|syscall|getenv|secure_getenv'
called=$(nm --dynamic --undefined-only "$library" | awk '{ print $2 }' | sed 's/@.*//')
while read -r symbol; do
  [[ -z $symbol ]] || wrong "refers to $(c++filt "$symbol")"
done < <(grep -xE "${forbidden//$'\n'/}" <<<"$called")
exit $result
