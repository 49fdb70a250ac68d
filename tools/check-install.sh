#!/usr/bin/env bash
# Installs the library from a build into a scratch prefix and builds a small consumer against it,
# once through find_package(vellument) and once through pkg-config; then builds and runs the
# example project of examples/ against the same prefix, and the installed `vellument` tool on what
# the example wrote.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${BUILD_DIR:-build}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/prefix" >/dev/null
mkdir -p "$work/consumer"
cat > "$work/consumer/main.cpp" <<'CPP'
#include <vellument/vellument.h>
#include <cstdio>
int main()
{
    CDateTime zero;
    std::printf("%s\n", zero.format("%m/%d/%Y %H:%M:%S").c_str());
    return AuditUtil::to_int("42") == 42 ? 0 : 1;
}
CPP
cat > "$work/consumer/CMakeLists.txt" <<'CMK'
cmake_minimum_required(VERSION 3.25)
project(consumer CXX)
find_package(vellument REQUIRED)
add_executable(consumer main.cpp)
target_link_libraries(consumer PRIVATE vellument::vellument)
CMK
cmake -S "$work/consumer" -B "$work/consumer/build" -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/consumer/build" >/dev/null
LD_LIBRARY_PATH="$work/prefix/lib:$work/prefix/lib/x86_64-linux-gnu" "$work/consumer/build/consumer"
export PKG_CONFIG_PATH="$work/prefix/lib/pkgconfig:$work/prefix/lib/x86_64-linux-gnu/pkgconfig"
c++ "$work/consumer/main.cpp" -o "$work/consumer/pc" $(pkg-config --cflags --libs vellument)
LD_LIBRARY_PATH="$work/prefix/lib:$work/prefix/lib/x86_64-linux-gnu" "$work/consumer/pc" >/dev/null
libs="$work/prefix/lib:$work/prefix/lib/x86_64-linux-gnu"
cmake -S examples -B "$work/example" -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/example" >/dev/null
export VELLUMENT_APPDATA="$work/appdata"
# A normal open asks the filing service for its hash: point it at a loopback port where nothing
# listens, never at the production host.
mkdir -p "$VELLUMENT_APPDATA"
printf '[DEBUG]\r\nTestMode=Y\r\nW2StatusServerAddress=https://127.0.0.1:1/supportservices.asmx\r\n' \
  > "$VELLUMENT_APPDATA/Settings.ini"
LD_LIBRARY_PATH="$libs" "$work/example/trail_example" "$work/company" >/dev/null
if [ -x "$work/prefix/bin/vellument" ]; then
  for vlm in "$work"/company/Histories/*.VLM; do
    LD_LIBRARY_PATH="$libs" "$work/prefix/bin/vellument" check "$vlm" >/dev/null
    LD_LIBRARY_PATH="$libs" "$work/prefix/bin/vellument" show --format json "$vlm" >/dev/null
  done
fi
echo "check-install: find_package and pkg-config consumers, the example and the installed tool built and ran"
