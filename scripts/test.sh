#!/usr/bin/env bash
# Builds the default preset and runs every test. With --asan, the same under
# AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh
preset=default
[ "${1:-}" = "--asan" ] && preset=asan
cmake --preset "$preset"
cmake --build --preset "$preset"
ctest --preset "$preset" -j "$(nproc)"
