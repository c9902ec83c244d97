#!/usr/bin/env bash
# Builds the benchmarks in Release mode and runs them (arguments are passed to
# every benchmark program, e.g. --benchmark_filter=Log). With --build-only as
# the first argument, only builds them.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${ZRN_BUILD_DIR:-$root/build-bench}

# The peer libraries measured side by side with zrn.
"$root/scripts/install-deps.sh" libbenchmark-dev libspdlog-dev libcereal-dev \
  libboost-serialization-dev libssl-dev
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DZRN_BUILD_BENCH=ON \
  -DZRN_BUILD_TESTS=OFF -DZRN_BUILD_EXAMPLES=ON >/dev/null
cmake --build "$build" -j"$(nproc)"
[ "${1:-}" = --build-only ] && exit 0
# The server store's benchmark measures against a throwaway server.
"$root/scripts/install-deps.sh" postgresql
if server_env=$("$root/scripts/pg-server.sh" start); then
  eval "$server_env"
  trap '"$root/scripts/pg-server.sh" stop' EXIT
fi
for program in "$build"/bench/zrn_bench_*; do
  "$program" "$@"
done
