#!/usr/bin/env bash
# Checks the installed package the way a host sees it: a fresh build folder of
# its own, configured once and installed into a scratch prefix; then a host
# outside the source tree built against that prefix with find_package(zrn),
# the sample host built the same way, and a host built with pkg-config alone.
# Also checks that the library exports no symbols of the standard library or
# Boost.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
prefix=$scratch/prefix

"$root/scripts/install-deps.sh"
# The Python module needs the sample host's model, so the examples are
# configured too (only the targets named here are built).
cmake -S "$root" -B "$scratch/build" -DZRN_BUILD_TESTS=OFF -DZRN_BUILD_EXAMPLES=ON \
  -DCMAKE_INSTALL_PREFIX="$prefix" -DZRN_PYTHON_INSTALL_DIR="$prefix/python" >/dev/null
cmake --build "$scratch/build" --target zrn zrn_store zrn-inspect zrn_python -j"$(nproc)" >/dev/null
cmake --install "$scratch/build" --prefix "$prefix" >/dev/null
"$root/scripts/check-exports.sh" "$(readlink -f "$prefix"/lib*/libzrn.so)"
"$root/scripts/check-exports.sh" "$(readlink -f "$prefix"/lib*/libzrn_store.so)"
"$prefix/bin/zrn-inspect" --help >/dev/null

# The installed Python module, imported from outside the build tree by the
# interpreter it was built for, makes, saves and opens a store.
python=$(sed -n 's/^ZRN_PYTHON_EXECUTABLE:INTERNAL=//p' "$scratch/build/CMakeCache.txt")
(cd "$scratch" && PYTHONPATH="$prefix/python" "$python" - <<'PY'
import zrn
assert zrn.__file__.startswith(__import__("os").environ["PYTHONPATH"]), zrn.__file__
with zrn.create("python-check.db") as project:
    project.root.add_child().props["x"] = 1.5
    project.save()
with zrn.open("python-check.db") as project:
    assert project[2].props["x"] == 1.5
PY
)

# A host that knows nothing of the source tree.
mkdir -p "$scratch/host"
cat >"$scratch/host/main.cpp" <<'HOST'
#include <zrn/zrn.h>
#include <cstdio>
int main() {
  zrn::CVariant value(42);
  std::printf("zrn %s: %d\n", ZRN_VERSION_STRING, value.toInt());
  return ZRN_VERSION >= ZRN_MAKE_VERSION(0, 0, 0) ? 0 : 1;
}
HOST
cat >"$scratch/host/store.cpp" <<'HOST'
#include <zrn/zrn.h>
#include <zrn/Store/SqliteDevice.h>
int main() {
  zrn::GSqliteDevice device;
  return device.Open(L"store-check.db") && device.SchemaVersion() > 0 ? 0 : 1;
}
HOST
cat >"$scratch/host/CMakeLists.txt" <<'HOST'
cmake_minimum_required(VERSION 3.25)
project(host LANGUAGES CXX)
find_package(zrn REQUIRED)
add_executable(host main.cpp)
target_link_libraries(host PRIVATE zrn::zrn)
add_executable(store store.cpp)
target_link_libraries(store PRIVATE zrn::store)
HOST
cmake -S "$scratch/host" -B "$scratch/host-build" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$scratch/host-build" >/dev/null
LD_LIBRARY_PATH="$prefix/lib" "$scratch/host-build/host"
(cd "$scratch" && LD_LIBRARY_PATH="$prefix/lib" "$scratch/host-build/store")

# The same host through pkg-config.
export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
# shellcheck disable=SC2046
g++ -std=c++20 "$scratch/host/main.cpp" -o "$scratch/host-pc" $(pkg-config --cflags --libs zrn)
LD_LIBRARY_PATH="$prefix/lib" "$scratch/host-pc" >/dev/null

# The sample host, built on its own against the installed package.
cmake -S "$root/examples" -B "$scratch/sample" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$scratch/sample" -j"$(nproc)" >/dev/null
LD_LIBRARY_PATH="$prefix/lib" "$scratch/sample/sample_host" --out "$scratch/sample-out" >/dev/null
# A project that adds zrn as a subproject keeps its own build type and gets
# no install rules of zrn's.
mkdir -p "$scratch/parent"
cat >"$scratch/parent/CMakeLists.txt" <<PARENT
cmake_minimum_required(VERSION 3.25)
project(parent LANGUAGES CXX)
add_subdirectory("$root" zrn)
PARENT
cmake -S "$scratch/parent" -B "$scratch/parent-build" >/dev/null
if [ -n "$(sed -n 's/^CMAKE_BUILD_TYPE:[A-Z]*=//p' "$scratch/parent-build/CMakeCache.txt")" ] ||
  grep -q 'zrnTargets' "$scratch/parent-build/zrn/cmake_install.cmake" 2>/dev/null; then
  echo "package check: zrn as a subproject changed the build type or installs itself" >&2
  exit 1
fi

echo "package check: hosts built against the installed library (CMake and pkg-config) run"
