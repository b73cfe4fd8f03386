#!/usr/bin/env bash
# Builds the lumivex program and runs its demo: a simulated 180-degree sweep over the
# photograph in assets/, stitched as a phone would, written to ./lumivex-demo/.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cmake -S "$root" -B "$root/build/release" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DLUMIVEX_BUILD_TESTS=OFF >/dev/null
cmake --build "$root/build/release" --target lumivex_cli >/dev/null
exec "$root/build/release/tools/lumivex" demo "$@"
