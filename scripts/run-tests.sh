#!/usr/bin/env bash
# Builds the library and its tests, then runs every test through CTest.
# With ZRN_SANITIZE=1 the build uses AddressSanitizer and
# UndefinedBehaviorSanitizer (in build-sanitize/ unless ZRN_BUILD_DIR is set).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)

sanitize=OFF
default_build=$root/build
if [ "${ZRN_SANITIZE:-0}" = 1 ]; then
  sanitize=ON
  default_build=$root/build-sanitize
  export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:strict_string_checks=1}
  export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
fi
build=${ZRN_BUILD_DIR:-$default_build}

# The server store's tests need a PostgreSQL server of their own.
"$root/scripts/install-deps.sh" postgresql
cmake -S "$root" -B "$build" -DZRN_BUILD_TESTS=ON -DZRN_BUILD_EXAMPLES=ON \
  -DZRN_SANITIZE=$sanitize >/dev/null
cmake --build "$build" -j"$(nproc)"
# Without a server the server store's tests skip, saying why.
if server_env=$("$root/scripts/pg-server.sh" start); then
  eval "$server_env"
  trap '"$root/scripts/pg-server.sh" stop' EXIT
else
  echo "run-tests: no PostgreSQL server could be started; its tests will skip" >&2
fi
ctest --test-dir "$build" --output-on-failure -j"$(nproc)"
