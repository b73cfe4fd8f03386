#!/usr/bin/env bash
# Builds and runs every test in each configuration:
#   native    release build
#   reference release build with the reference kernels only (fast paths off)
#   sanitize  AddressSanitizer + UndefinedBehaviorSanitizer, halting on the first error
#   arm       32-bit ARM (arm-linux-gnueabihf) cross build, run under qemu-arm
# Prints one summary line per configuration and exits non-zero if any fails.
# Usage: scripts/test.sh [config...]
set -uo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
configs=("$@")
[[ ${#configs[@]} -gt 0 ]] || configs=(native reference sanitize arm)
jobs=$(nproc 2>/dev/null || echo 2)

cmake_args() {
  case "$1" in
    native) echo "-DCMAKE_BUILD_TYPE=Release" ;;
    reference) echo "-DCMAKE_BUILD_TYPE=Release -DLUMIVEX_SIMD=OFF -DLUMIVEX_BUILD_TOOLS=OFF" ;;
    sanitize) echo "-DCMAKE_BUILD_TYPE=RelWithDebInfo -DLUMIVEX_SANITIZE=ON" ;;
    arm) echo "-DCMAKE_BUILD_TYPE=Release -DLUMIVEX_BUILD_TOOLS=OFF" \
              "-DCMAKE_TOOLCHAIN_FILE=$root/cmake/toolchains/arm-linux-gnueabihf.cmake" ;;
    *) return 1 ;;
  esac
}

export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:strict_string_checks=1"
export UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1"

summary=()
total_pass=0
total_fail=0
status=0
for config in "${configs[@]}"; do
  args=$(cmake_args "$config") || { echo "unknown configuration: $config" >&2; exit 2; }
  dir="build/$config"
  log="$dir.log"
  mkdir -p build
  echo "== $config: configure and build ($dir)"
  # shellcheck disable=SC2086
  if ! { cmake -S . -B "$dir" -G Ninja $args && cmake --build "$dir" -j "$jobs"; } >"$log" 2>&1; then
    tail -n 40 "$log"
    summary+=("$config: build failed (see $log)")
    status=1
    continue
  fi
  echo "== $config: test"
  ctest --test-dir "$dir" -j "$jobs" --output-on-failure --timeout 900 2>&1 | tee -a "$log" |
    grep -E '^(\s*[0-9]+/[0-9]+ Test|[0-9]+% tests passed|The following tests|\s+[0-9]+ - )' |
    grep -v ' Passed ' || true
  line=$(grep -E '[0-9]+% tests passed, [0-9]+ tests? failed out of [0-9]+' "$log" | tail -n 1)
  if [[ -z "$line" ]]; then
    summary+=("$config: no test result (see $log)")
    status=1
    continue
  fi
  failed=$(sed -E 's/.* ([0-9]+) tests? failed out of ([0-9]+).*/\1/' <<<"$line")
  all=$(sed -E 's/.* failed out of ([0-9]+).*/\1/' <<<"$line")
  passed=$((all - failed))
  total_pass=$((total_pass + passed))
  total_fail=$((total_fail + failed))
  [[ $failed -eq 0 && $all -gt 0 ]] || status=1
  summary+=("$config: $passed passed, $failed failed")
done

echo
printf '%s\n' "${summary[@]}"
echo "total: $total_pass passed, $total_fail failed"
exit $status
