#!/usr/bin/env bash
# Builds and runs every test in each configuration:
#   native    release build
#   reference release build with the reference kernels only (fast paths off)
#   sanitize  AddressSanitizer + UndefinedBehaviorSanitizer, halting on the first error
#   arm       32-bit ARM (armv7-a with NEON, as Android's armeabi-v7a) cross build, run
#             under qemu-arm
#   arm-noneon  the same for ARM cores without NEON
#   tsan      ThreadSanitizer: captures in several threads at once (the Threads tests)
#   fuzz      clang + libFuzzer: replays the stored corpora, then runs each fuzz target for
#             LUMIVEX_FUZZ_SECONDS (default 10) on a scratch copy of its corpus
# Prints one summary line per configuration and exits non-zero if any fails.
# Usage: scripts/test.sh [config...]
set -uo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
configs=("$@")
[[ ${#configs[@]} -gt 0 ]] || configs=(native reference sanitize tsan arm arm-noneon fuzz)
jobs=$(nproc 2>/dev/null || echo 2)

# The sanitizer builds optimise lightly and keep line tables only: they compile in about
# half the time of -O2 -g, and their reports still name files and lines.
light_flags() {
  case "$1" in
    sanitize | tsan) echo "-O1 -g1 -DNDEBUG" ;;
    fuzz) echo "-O1 -gline-tables-only -DNDEBUG" ;;
  esac
}

cmake_args() {
  case "$1" in
    native) echo "-DCMAKE_BUILD_TYPE=Release" ;;
    reference) echo "-DCMAKE_BUILD_TYPE=Release -DLUMIVEX_SIMD=OFF -DLUMIVEX_BUILD_TOOLS=OFF" ;;
    # The fuzz configuration replays the corpora under the same sanitizers.
    sanitize) echo "-DCMAKE_BUILD_TYPE=RelWithDebInfo -DLUMIVEX_SANITIZE=ON -DLUMIVEX_FUZZ_REPLAY=OFF" ;;
    tsan) echo "-DCMAKE_BUILD_TYPE=RelWithDebInfo -DLUMIVEX_TSAN=ON -DLUMIVEX_BUILD_TOOLS=OFF" \
               "-DLUMIVEX_BUILD_JNI=OFF" ;;
    arm) echo "-DCMAKE_BUILD_TYPE=Release -DLUMIVEX_BUILD_TOOLS=OFF" \
              "-DCMAKE_TOOLCHAIN_FILE=$root/cmake/toolchains/arm-linux-gnueabihf.cmake" ;;
    arm-noneon) echo "-DCMAKE_BUILD_TYPE=Release -DLUMIVEX_BUILD_TOOLS=OFF -DLUMIVEX_ARM_NEON=OFF" \
              "-DCMAKE_TOOLCHAIN_FILE=$root/cmake/toolchains/arm-linux-gnueabihf.cmake" ;;
    fuzz) echo "-DCMAKE_BUILD_TYPE=RelWithDebInfo -DLUMIVEX_BUILD_FUZZ=ON -DLUMIVEX_BUILD_TESTS=OFF" \
               "-DLUMIVEX_BUILD_JNI=OFF -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++" ;;
    *) return 1 ;;
  esac
}

export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:strict_string_checks=1"
export UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1"
export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1"

# What each configuration builds and runs, where not everything: the tsan one only the
# tests that start threads; the sanitize one leaves out the program's three longest runs
# (the native build runs them, and the hostile-input ones stay); ARM without NEON what
# tells whether its cores give the same bytes (the kernels against their reference, the
# stored panorama checksums and the end-to-end sweeps), the rest being the ARM build's.
build_target() {
  case "$1" in
    tsan) echo "--target thread_tests lumivex_testdata" ;;
    arm-noneon) echo "--target kernel_tests engine_tests lumivex_testdata" ;;
  esac
}
test_filter() {
  case "$1" in
    tsan) echo "-R ^Threads\\." ;;
    sanitize) echo "-E ^Cli\\.(EvalScoresCompletionAndTracking|InterruptsNeverDamageTheOutput|DemoRunsOutOfTheBox)$" ;;
    arm-noneon) echo "-R ^(Sets/Kernels|KernelChoice|PanoramaChecksums|EngineCapture)\\." ;;
  esac
}

# Runs every fuzz target for a bounded time on a scratch copy of its corpus and appends a
# ctest-style result line for the runs to the log. A finding fails the configuration; its
# input is kept in $dir/fuzz-findings.
fuzz_runs() {
  local dir=$1 log=$2 seconds=${LUMIVEX_FUZZ_SECONDS:-10} total=0 failed=0
  mkdir -p "$dir/fuzz-findings"
  for target in "$dir"/fuzz/*_fuzzer; do
    local name scratch
    name=$(basename "$target" _fuzzer)
    scratch="$dir/fuzz-corpus/$name"
    rm -rf "$scratch" && mkdir -p "$scratch" && cp fuzz/corpus/"$name"/* "$scratch"/
    total=$((total + 1))
    if "$target" -max_total_time="$seconds" -timeout=60 -rss_limit_mb=2560 -malloc_limit_mb=1024 \
        -artifact_prefix="$dir/fuzz-findings/$name-" -print_final_stats=1 "$scratch" \
        >"$dir/fuzz-$name.log" 2>&1; then
      echo "   fuzz $name: $(grep -Eo 'stat::number_of_executed_units: [0-9]+' "$dir/fuzz-$name.log" |
        grep -Eo '[0-9]+') runs, no finding"
    else
      failed=$((failed + 1))
      echo "   fuzz $name: FINDING (see $dir/fuzz-$name.log)"
      grep -E 'ERROR|runtime error|fuzz check' "$dir/fuzz-$name.log" | head -n 5
    fi
  done
  # Fold the runs into ctest's own closing line, which the summary below reads.
  local tests replay_failed
  tests=$(grep -Eo 'failed out of [0-9]+' "$log" | tail -n 1 | grep -Eo '[0-9]+')
  replay_failed=$(grep -Eo '[0-9]+ tests? failed out' "$log" | tail -n 1 | grep -Eo '^[0-9]+')
  local all=$((tests + total)) bad=$((replay_failed + failed))
  echo "$(( (all - bad) * 100 / all ))% tests passed, $bad tests failed out of $all" >>"$log"
}

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
  # shellcheck disable=SC2046
  flags=$(light_flags "$config")
  light=()
  [[ -z $flags ]] || light=("-DCMAKE_C_FLAGS_RELWITHDEBINFO=$flags" "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=$flags")
  if ! { cmake -S . -B "$dir" -G Ninja $args "${light[@]}" &&
         cmake --build "$dir" -j "$jobs" $(build_target "$config"); } >"$log" 2>&1; then
    tail -n 40 "$log"
    summary+=("$config: build failed (see $log)")
    status=1
    continue
  fi
  echo "== $config: test"
  # shellcheck disable=SC2046
  # The thread test runs one round (64 captures in 4 threads) under ThreadSanitizer, which
  # sees a race the first time both sides of it run, and under qemu; two elsewhere.
  LUMIVEX_THREAD_ROUNDS=$(case $config in tsan | arm*) echo 1 ;; *) echo 2 ;; esac) \
  ctest --test-dir "$dir" -j "$jobs" --output-on-failure --timeout 900 $(test_filter "$config") 2>&1 |
    tee -a "$log" |
    grep -E '^(\s*[0-9]+/[0-9]+ Test|[0-9]+% tests passed|The following tests|\s+[0-9]+ - )' |
    grep -v ' Passed ' || true
  line=$(grep -E '[0-9]+% tests passed, [0-9]+ tests? failed out of [0-9]+' "$log" | tail -n 1)
  if [[ $config == fuzz && -n "$line" ]]; then
    fuzz_runs "$dir" "$log"
    line=$(grep -E '[0-9]+% tests passed, [0-9]+ tests? failed out of [0-9]+' "$log" | tail -n 1)
  fi
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
