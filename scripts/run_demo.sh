#!/usr/bin/env bash
# Builds the lumivex program and runs it on its built-in default.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DLUMIVEX_BUILD_TESTS=OFF >/dev/null
cmake --build build/release --target lumivex_cli >/dev/null
./build/release/tools/lumivex version
