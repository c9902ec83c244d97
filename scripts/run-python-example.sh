#!/usr/bin/env bash
# Builds the sample host and the Python module, lets the host write its store
# (build/sample_host_out/model.db), then runs examples/python/frame.py on it.
# Arguments go to the example (the new bay width, 9 m by default).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${ZRN_BUILD_DIR:-$root/build}

"$root/scripts/install-deps.sh"
cmake -S "$root" -B "$build" -DZRN_BUILD_EXAMPLES=ON -DZRN_BUILD_PYTHON=ON >/dev/null
cmake --build "$build" --target sample_host zrn_python -j"$(nproc)"
python=$(sed -n 's/^ZRN_PYTHON_EXECUTABLE:INTERNAL=//p' "$build/CMakeCache.txt")
out=$build/sample_host_out
"$build/examples/sample_host" --out "$out" >/dev/null
PYTHONPATH="$build/python" "$python" "$root/examples/python/frame.py" "$out/model.db" "$@"
