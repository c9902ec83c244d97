#!/usr/bin/env bash
# Installs the library into a scratch prefix and builds the sample host on its
# own against it with find_package(zrn), as a host application would.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${ZRN_BUILD_DIR:-$root/build}
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

"$root/scripts/install-deps.sh"
cmake -S "$root" -B "$build" >/dev/null
cmake --build "$build" --target zrn -j"$(nproc)"
cmake --install "$build" --prefix "$scratch/prefix" >/dev/null
cmake -S "$root/examples" -B "$scratch/host" -DCMAKE_PREFIX_PATH="$scratch/prefix" >/dev/null
cmake --build "$scratch/host" -j"$(nproc)" >/dev/null
LD_LIBRARY_PATH="$scratch/prefix/lib" "$scratch/host/sample_host" "$scratch/host.log" >/dev/null
echo "package check: a host built against the installed library runs"
