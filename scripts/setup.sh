#!/usr/bin/env bash
# Installs what building, testing and benchmarking need on a fresh Debian
# machine. Safe to run again: it installs only what is missing.
set -euo pipefail

packages=(cmake ninja-build g++ clang libgtest-dev libgmock-dev libbenchmark-dev libboost-dev
          libmimalloc-dev libjemalloc-dev libmuparser-dev libfmt-dev)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  SUDO=""
  [ "$(id -u)" -ne 0 ] && SUDO="sudo"
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${missing[@]}"
fi
