#!/usr/bin/env bash
# Instructions per preview frame (ZMOS_SelectFrames + ZMOS_UpdateUIImage, as a host calls
# them) against the floor of reading every luma byte once, and instructions for the stitch
# of the sweep: callgrind on this machine, a qemu plugin for 32-bit ARM (NEON and not).
# Counts are differences between runs of bench/frame_cost over the same setup, so scene
# generation and start-up cancel out. Repeatable on a noisy machine, unlike times.
# Usage: scripts/instructions.sh [x86|arm|arm-noneon ...]   (default: all three)
# LUMIVEX_COST_SWEEP=SWEEP.y4m (I420, from `lumivex simulate`) measures its frames instead of
# the synthetic scene's, at its own size (LUMIVEX_COST_SIZE, default 640x480).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
targets=("$@")
[[ ${#targets[@]} -gt 0 ]] || targets=(x86 arm arm-noneon)
frames=${LUMIVEX_COST_FRAMES:-24}
profile=${LUMIVEX_COST_PROFILE:-exact}
recorded=${LUMIVEX_COST_SWEEP:-}
sizes=(640x480 1280x720 1920x1080)
[[ -z $recorded ]] || sizes=("${LUMIVEX_COST_SIZE:-640x480}")
plugin=build/libinsn_count.so

build() {
  local dir=$1; shift
  cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DLUMIVEX_BUILD_TESTS=OFF \
    -DLUMIVEX_BUILD_TOOLS=OFF -DLUMIVEX_BUILD_JNI=OFF -DLUMIVEX_BUILD_BENCH=ON "$@" >/dev/null
  cmake --build "$dir" --target frame_cost >/dev/null
}

# Total instructions of one run.
count() {
  local target=$1; shift
  case "$target" in
    x86)
      valgrind --tool=callgrind --callgrind-out-file=/dev/null "$@" 2>&1 >/dev/null |
        sed -n 's/.*Collected : \([0-9]*\).*/\1/p' ;;
    *)
      qemu-arm -L /usr/arm-linux-gnueabihf -plugin "$plugin" -d plugin "$@" 2>&1 >/dev/null |
        sed -n 's/^insns: \([0-9]*\)$/\1/p' ;;
  esac
}

for target in "${targets[@]}"; do
  case "$target" in
    x86) dir=build/cost-x86; build "$dir" ;;
    arm) dir=build/cost-arm
      build "$dir" -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchains/arm-linux-gnueabihf.cmake" ;;
    arm-noneon) dir=build/cost-arm-noneon
      build "$dir" -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchains/arm-linux-gnueabihf.cmake" \
        -DLUMIVEX_ARM_NEON=OFF ;;
    *) echo "unknown target $target" >&2; exit 2 ;;
  esac
  if [[ $target != x86 && ! -f $plugin ]]; then
    mkdir -p build && cc -shared -fPIC -O2 bench/insn_count.c -o "$plugin"
  fi
  echo "== $target ($profile profile, $frames frames)"
  printf '%-10s %14s %14s %10s %16s\n' size "insns/frame" "floor/frame" "x floor" "stitch insns"
  for size in "${sizes[@]}"; do
    w=${size%x*} h=${size#*x}
    run() {
      count "$target" "$dir/bench/frame_cost" "$1" "$w" "$h" "$frames" "$profile" \
        ${recorded:+"$(realpath "$recorded")"}
    }
    setup=$(run setup) per=$(run frames) floor=$(run floor) sweep=$(run sweep) stitch=$(run stitch)
    printf '%-10s %14d %14d %10.2f %16d\n' "$size" $(((per - setup) / frames)) \
      $(((floor - setup) / frames)) "$(echo "($per - $setup) / ($floor - $setup)" | bc -l)" \
      $((stitch - sweep))
  done
done
