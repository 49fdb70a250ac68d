#!/usr/bin/env bash
# Installs the dependencies, builds the library, the `vellument` tool and the stand-in filing
# service, and walks one W-2 filing through the library and the service (which the demo starts on
# 127.0.0.1 and stops) with `vellument demo` in a new temporary company directory.
#   BUILD_DIR  build directory (default: build)
set -euo pipefail
cd "$(dirname "$0")/.."
tools/install-deps.sh
build=${BUILD_DIR:-build}
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build "$build" --target vellument_cli vellument_filing_service
company=$(mktemp -d)
"$build/tools/vellument/vellument" demo "$company"
echo "demo: the company directory is $company"
