#!/usr/bin/env bash
# Builds the library and runs the demo host.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh
cmake --preset default >/dev/null
cmake --build --preset default --target orvademo
./build/default/tools/orvademo
