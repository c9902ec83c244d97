#!/usr/bin/env bash
# Builds the library alone with clang's thread-safety analysis, failing on any
# finding: data annotated as guarded by a lock touched without it, a lock
# taken and not released, a function that needs a lock called without it.
# Builds in build-thread-safety/ unless ZRN_BUILD_DIR is set; runs no tests.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${ZRN_BUILD_DIR:-$root/build-thread-safety}

"$root/scripts/install-deps.sh" clang
CC=clang CXX=clang++ CXXFLAGS="-Wthread-safety -Werror=thread-safety" \
  cmake -S "$root" -B "$build" -DZRN_BUILD_TESTS=OFF -DZRN_BUILD_EXAMPLES=OFF >/dev/null
cmake --build "$build" -j"$(nproc)" --target zrn
echo "check-thread-safety: no findings"
