#!/usr/bin/env bash
# Builds the library and the sample host, then runs the sample host.
# Usage: scripts/run-example.sh [log-file]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${ZRN_BUILD_DIR:-$root/build}

"$root/scripts/install-deps.sh"
cmake -S "$root" -B "$build" -DZRN_BUILD_EXAMPLES=ON >/dev/null
cmake --build "$build" --target sample_host -j"$(nproc)"
"$build/examples/sample_host" "${1:-$build/sample_host.log}"
