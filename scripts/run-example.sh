#!/usr/bin/env bash
# Builds the library and the sample host, then runs the sample host with the
# arguments given (e.g. --entities 1000000; --help lists them). Graphviz is
# installed too, so that the sample host can render its model graph.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${ZRN_BUILD_DIR:-$root/build}

"$root/scripts/install-deps.sh" graphviz
cmake -S "$root" -B "$build" -DZRN_BUILD_EXAMPLES=ON >/dev/null
cmake --build "$build" --target sample_host -j"$(nproc)"
"$build/examples/sample_host" "$@"
