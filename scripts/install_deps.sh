#!/usr/bin/env bash
# Installs the Debian packages the builds and tests need, when any is missing.
# Shared by the CI entry, the sample run and the test command, so a fresh
# machine needs nothing but this checkout.
#   scripts/install_deps.sh            everything (native, Windows under Wine, fuzzers)
#   scripts/install_deps.sh native     only what the native build and its run need
set -euo pipefail

packages=(cmake ninja-build g++ python3 googletest)
if [ "${1:-all}" != native ]; then
  packages+=(clang clang-format libclang-rt-14-dev
             g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 wine64)
fi

missing=()
for p in "${packages[@]}"; do
  dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "installing: ${missing[*]}"
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq "${missing[@]}" >/dev/null
