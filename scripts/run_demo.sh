#!/usr/bin/env bash
# Builds the lumivex program and runs its demo: a simulated 180-degree sweep over the
# photograph in assets/, stitched as a phone would, written to ./lumivex-demo/.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
echo "run_demo: building build/release/tools/lumivex (about a minute the first time)" >&2
cmake -S "$root" -B "$root/build/release" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DLUMIVEX_BUILD_TESTS=OFF >/dev/null
# Ninja's [n/N] progress lines and any error, so a first build shows that it is moving; a
# failed build still stops here (pipefail).
cmake --build "$root/build/release" --target lumivex_cli 2>&1 |
  { grep --line-buffered -E '^\[|error' >&2 || true; }
exec "$root/build/release/tools/lumivex" demo "$@"
