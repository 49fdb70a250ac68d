#!/usr/bin/env bash
# Installs the dependencies, configures, builds and runs the whole test suite.
#   BUILD_DIR          build directory (default: build)
#   VELLUMENT_SANITIZE set to 1 for an AddressSanitizer + UndefinedBehaviorSanitizer build
set -euo pipefail
cd "$(dirname "$0")/.."
tools/install-deps.sh
build=${BUILD_DIR:-build}
sanitize=OFF
benchmarks=ON
if [ "${VELLUMENT_SANITIZE:-0}" = 1 ]; then
  sanitize=ON
  benchmarks=OFF  # the plain build already proves they compile
  export ASAN_OPTIONS=${ASAN_OPTIONS:-abort_on_error=1:detect_leaks=1:strict_string_checks=1:detect_stack_use_after_return=1}
  export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
fi
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVELLUMENT_SANITIZE=$sanitize -DVELLUMENT_BUILD_BENCHMARKS=$benchmarks
cmake --build "$build"
ctest --test-dir "$build" --output-on-failure -j "$(nproc)"
