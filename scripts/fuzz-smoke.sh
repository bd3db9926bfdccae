#!/usr/bin/env bash
# Builds the libFuzzer targets (fuzz preset: clang, AddressSanitizer) and runs
# each for a short while; a crash, a sanitizer report or a failed check stops
# the script with the end of that target's log. The corpora grow in
# build/fuzz/corpus/. Usage: scripts/fuzz-smoke.sh [seconds per target, default 10]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-10}"
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --target fuzzers
for target in build/fuzz/fuzz/*_fuzz; do
  name="$(basename "$target")"
  corpus="build/fuzz/corpus/$name"
  log="build/fuzz/$name.log"
  mkdir -p "$corpus"
  if ! "$target" -max_total_time="$seconds" -artifact_prefix="build/fuzz/$name-" "$corpus" >"$log" 2>&1; then
    tail -n 40 "$log"
    echo "FAILED: $name (log: $log)"
    exit 1
  fi
  echo "ok: $name, $(grep -E '^#[0-9]+' "$log" | tail -n 1)"
done
