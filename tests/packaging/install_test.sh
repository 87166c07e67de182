#!/usr/bin/env bash
# An installed copy must work from any prefix: the tool starts, and a C program builds against it by pkg-config and by
# CMake, without a hint where the libraries are.
set -euo pipefail
build=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAILED: $*" >&2; exit 1; }

cmake --install "$build" --prefix "$work/prefix" >"$work/log" || { cat "$work/log"; fail "install"; }
mv "$work/prefix" "$work/moved"
prefix=$work/moved
env -u LD_LIBRARY_PATH "$prefix/bin/certkern" --version >/dev/null || fail "the installed tool does not start"

cat >"$work/program.c" <<'C'
#include <certkern/certkern.h>
#include <stdio.h>
int main(void) {
  const int reason = 1;
  BYTE out[8];
  DWORD size = sizeof out;
  if (!CryptEncodeObject(X509_ASN_ENCODING, "2.5.29.21", &reason, out, &size)) return 1;
  printf("%u %02x%02x%02x\n", size, out[0], out[1], out[2]);
  return 0;
}
C
pc=$(find "$prefix" -name certkern.pc -printf '%h')
libdir=$(dirname "$pc")
flags=$(PKG_CONFIG_PATH=$pc pkg-config --cflags --libs certkern)
# shellcheck disable=SC2086
cc -std=c11 -Wall -Wextra -Werror -pedantic "$work/program.c" -o "$work/by_pkgconfig" $flags "-Wl,-rpath,$libdir"
[[ $("$work/by_pkgconfig") == "3 0a0101" ]] || fail "the program built with pkg-config"

mkdir "$work/cm"
cat >"$work/cm/CMakeLists.txt" <<CMAKE
cmake_minimum_required(VERSION 3.25)
project(consumer C)
find_package(certkern 4 REQUIRED)
add_executable(consumer $work/program.c)
target_link_libraries(consumer PRIVATE certkern::certkern)
CMAKE
cmake -G Ninja -S "$work/cm" -B "$work/cm/b" -DCMAKE_PREFIX_PATH="$prefix" >"$work/log" && cmake --build "$work/cm/b" >>"$work/log" ||
  { cat "$work/log"; fail "the CMake package"; }
[[ $("$work/cm/b/consumer") == "3 0a0101" ]] || fail "the program built with CMake"
echo "installed copy works"
