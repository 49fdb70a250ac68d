#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each one for FUZZ_SECONDS (default 60),
# or FUZZ_SECONDS_<name> for that target, on a copy of its seed corpus. Any finding fails the run.
set -euo pipefail
cd "$(dirname "$0")/.."
tools/install-deps.sh
build=${FUZZ_BUILD_DIR:-build-fuzz}
seconds=${FUZZ_SECONDS:-60}
CC=clang CXX=clang++ cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DVELLUMENT_BUILD_FUZZERS=ON -DVELLUMENT_BUILD_TESTS=OFF -DVELLUMENT_BUILD_BENCHMARKS=OFF \
  -DVELLUMENT_BUILD_TOOLS=OFF
cmake --build "$build"
export ASAN_OPTIONS=${ASAN_OPTIONS:-abort_on_error=1:detect_leaks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
status=0
for exe in "$build"/fuzz/fuzz_*; do
  [ -x "$exe" ] || continue
  name=$(basename "$exe"); name=${name#fuzz_}
  var="FUZZ_SECONDS_$name"
  target_seconds=${!var:-$seconds}
  work=$(mktemp -d)
  [ -d "fuzz/corpus/$name" ] && cp -r "fuzz/corpus/$name/." "$work/"
  echo "fuzz: $name for ${target_seconds}s"
  if ! "$exe" "$work" -max_total_time="$target_seconds" -timeout=10 -rss_limit_mb=2048 -max_len=65536 \
       -artifact_prefix="$build/fuzz/$name-" -print_final_stats=1 2>"$build/fuzz/$name.log"; then
    echo "fuzz: $name found a problem:"; tail -40 "$build/fuzz/$name.log"; status=1
  else
    grep -E 'stat::number_of_executed_units|Done' "$build/fuzz/$name.log" | tail -2 || true
  fi
  rm -rf "$work"
done
exit $status
