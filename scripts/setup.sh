#!/usr/bin/env bash
# Installs what lumivex needs to build and test, from Debian's packages.
# Idempotent: quiet and quick when everything is already there.
set -euo pipefail

packages=(
  cmake ninja-build g++ clang clang-format libclang-rt-14-dev llvm
  googletest libgtest-dev libbenchmark-dev libjpeg-turbo-progs
  libpng-dev libjpeg62-turbo-dev pkgconf
  g++-arm-linux-gnueabihf qemu-user ffmpeg openjdk-17-jdk-headless
  android-libnativehelper-dev android-platform-frameworks-native-headers android-liblog-dev
  libc6-dev-arm64-cross libstdc++-12-dev-arm64-cross
  libavformat-dev libavcodec-dev libswscale-dev libavutil-dev chromium
)

missing=()
for p in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
  [[ "$status" == "install ok installed" ]] || missing+=("$p")
done
[[ ${#missing[@]} -eq 0 ]] && exit 0

sudo=""
[[ $(id -u) -eq 0 ]] || sudo="sudo"
echo "setup: installing ${missing[*]}" >&2
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq >/dev/null
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
