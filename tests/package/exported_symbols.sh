#!/usr/bin/env bash
# exported_symbols.sh LIBRARY: the library exports what applications need, and nothing else.
set -euo pipefail
library=$1

expected='_ZN14CKovaShfeMdApi19CreateKovaShfeMdApiEv
_ZN14CKovaShfeMdApi20DestroyKovaShfeMdApiERS_
_ZTI14CKovaShfeMdApi
_ZTS14CKovaShfeMdApi'

# The name of the version itself is the one absolute symbol.
exported=$(nm --dynamic --defined-only "$library" | awk '$2 != "A" { print $3 }')
version=KOVA_SHFE_MD_1

result=0
for symbol in $expected; do
  grep -qxF "$symbol@@$version" <<<"$exported" ||
    { printf 'missing, or not of version %s: %s\n' "$version" "$(c++filt "$symbol")"; result=1; }
done
while read -r symbol; do
  grep -qxF "${symbol%%@*}" <<<"$expected" ||
    { printf 'exported, but no part of the interface: %s\n' "$(c++filt "${symbol%%@*}")"; result=1; }
done <<<"$exported"
exit $result
