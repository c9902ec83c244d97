#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each for a bounded time.
# Usage: scripts/run-fuzz.sh [seconds-per-target]   (default 60)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${ZRN_BUILD_DIR:-$root/build-fuzz}
seconds=${1:-60}

"$root/scripts/install-deps.sh" clang libclang-rt-14-dev
CC=clang CXX=clang++ cmake -S "$root" -B "$build" -DZRN_BUILD_FUZZ=ON -DZRN_SANITIZE=ON \
  -DZRN_BUILD_TESTS=OFF -DZRN_BUILD_EXAMPLES=OFF >/dev/null
cmake --build "$build" -j"$(nproc)"

for target in "$build"/fuzz/zrn_fuzz_*; do
  name=$(basename "$target")
  corpus=$build/corpus/$name
  mkdir -p "$corpus"
  inputs=("$corpus")
  seeds=$root/fuzz/corpus/${name#zrn_fuzz_}
  [ -d "$seeds" ] && inputs+=("$seeds")
  log=$build/$name.log
  echo "== $name for ${seconds}s (output in $log)"
  if ! "$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
    -artifact_prefix="$build/" "${inputs[@]}" >"$log" 2>&1; then
    tail -n 60 "$log"
    exit 1
  fi
  grep -E '^Done [0-9]+ runs' "$log" || true
done
