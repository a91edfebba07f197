#!/usr/bin/env bash
# embedding.sh SOURCE-DIR WORK-DIR: a project that takes the tree in with add_subdirectory gets the library and
# none of our flags, and needs nothing but a compiler for it.
set -euo pipefail
source_dir=$1
work_dir=$2

rm -rf "$work_dir"
mkdir -p "$work_dir"
cat >"$work_dir/CMakeLists.txt" <<'CMAKE'
cmake_minimum_required(VERSION 3.25)
project(outer LANGUAGES C CXX)
set(CMAKE_CXX_STANDARD 11)
# No library of this machine is to be found.
foreach(place IN ITEMS CMAKE_SYSTEM SYSTEM_ENVIRONMENT CMAKE_ENVIRONMENT)
  set(CMAKE_FIND_USE_${place}_PATH OFF)
endforeach()
add_subdirectory(${KOVA_SOURCE_DIR} kova)
add_executable(outer main.cpp)
target_link_libraries(outer PRIVATE kova::shfe_md)
CMAKE
# Code that our own warnings would refuse.
cat >"$work_dir/main.cpp" <<'CPP'
#include <KovaShfeMdApi.h>

int main(int argc, char** argv) {
    int unused;
    char narrow = (char)argc;
    CKovaShfeMdApi* api = CKovaShfeMdApi::CreateKovaShfeMdApi();
    if (api == nullptr) return 1;
    const int started = api->KovaStart("there is no such file");
    CKovaShfeMdApi::DestroyKovaShfeMdApi(*api);
    return started == -2 ? 0 : 2;
}
CPP
cd "$work_dir"
cmake -G Ninja -S . -B build -DKOVA_SOURCE_DIR="$source_dir" -DCMAKE_EXPORT_COMPILE_COMMANDS=ON >/dev/null

command=$(jq -r --arg file "$work_dir/main.cpp" '.[] | select(.file == $file) | .command' build/compile_commands.json)
inherited=$(grep -oE -- ' (-W[^ ]*|-f[^ ]*|-std=[^ ]*20[^ ]*)' <<<"$command" || true)
if [[ -n $inherited ]]; then
  printf 'the outer program is compiled with flags of ours:\n%s\n' "$inherited"
  exit 1
fi
if cmake --build build --target help | grep -q '^test:'; then
  printf 'the outer project inherited our tests\n'
  exit 1
fi
cmake --build build >build.log || { cat build.log; exit 1; }
./build/outer >run.log || { printf 'the outer program failed:\n'; cat run.log; exit 1; }
cmake --install build --prefix "$work_dir/prefix" >install.log 2>&1 ||
  { printf 'installing the outer project failed:\n'; cat install.log; exit 1; }
if find prefix -name '*kova*' -o -name '*Kova*' 2>/dev/null | grep -q .; then
  printf 'installing the outer project installs our files\n'
  exit 1
fi
