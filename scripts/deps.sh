#!/usr/bin/env bash
# Installs the Debian packages that building and testing tvx need, only those missing.
set -euo pipefail
packages=(cmake ninja-build g++ libgmp-dev libgtest-dev libgmock-dev libbenchmark-dev z3 cvc5 libz3-dev libcvc5-dev
  clang libclang-rt-dev yosys why3 python3 "$@")
missing=()
for pkg in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed' || missing+=("$pkg")
done
if ((${#missing[@]})); then
  echo "installing: ${missing[*]}"
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}"
fi
