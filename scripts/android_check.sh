#!/usr/bin/env bash
# Compiles every library source (the JNI binding included) for Android's 32- and 64-bit ARM
# ABIs with clang's Android triples, warnings as errors. There is no NDK in Debian: the
# Android headers are the AOSP ones Debian ships (jni.h, android/bitmap.h, android/log.h),
# and the C and C++ library headers come from Debian's ARM cross packages (glibc and
# libstdc++ in place of bionic and libc++). So this proves that the sources, with
# __ANDROID__ and the Android APIs, compile cleanly for both ABIs; it does not link or run
# anything. Prints one line per failure and a summary; exits non-zero on any failure.
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
clang=${CLANGXX:-clang++}
shim=$(mktemp -d)
trap 'rm -rf "$shim"' EXIT
# armeabi-v7a passes floats in integer registers; the hard-float glibc headers only lack
# this stub list for that calling convention.
mkdir -p "$shim/gnu" && echo '#include <gnu/stubs-hard.h>' >"$shim/gnu/stubs-soft.h"

warnings=(-Wall -Wextra -Werror -Wno-unused-parameter -Wshorten-64-to-32 -Wint-to-pointer-cast
          -Wpointer-to-int-cast -Wint-conversion)
sources=$(git ls-files 'src/*.cc' 2>/dev/null || find src -name '*.cc')
total=0
failed=0
for abi in armv7a-linux-androideabi21:arm-linux-gnueabihf aarch64-linux-android21:aarch64-linux-gnu; do
  triple=${abi%%:*}
  sys=/usr/${abi##*:}/include
  extra=()
  [[ $triple == armv7a* ]] && extra=(-mfpu=neon -isystem "$shim")
  if [[ ! -d $sys/c++/12 || ! -f /usr/include/android/nativehelper/jni.h ]]; then
    echo "android check: headers for $triple missing (run scripts/setup.sh)"
    exit 2
  fi
  for f in $sources; do
    total=$((total + 1))
    if ! out=$("$clang" --target="$triple" -std=c++20 -O2 -fPIC -fvisibility=hidden -c -o /dev/null \
        -nostdinc++ -isystem "$sys/c++/12" -isystem "$sys/c++/12/${abi##*:}" "${extra[@]}" \
        -isystem "$sys" -isystem /usr/include/android -isystem /usr/include/android/nativehelper \
        -Iinclude -I. "${warnings[@]}" "$f" 2>&1); then
      failed=$((failed + 1))
      echo "android check: $f does not compile for $triple"
      echo "$out" | head -n 20
    fi
  done
done
echo "android check: $((total - failed)) of $total compilations clean (armeabi-v7a, arm64-v8a)"
[[ $failed -eq 0 ]]
