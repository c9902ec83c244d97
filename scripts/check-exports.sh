#!/usr/bin/env bash
# Fails when libzrn.so exports a symbol of the standard library or Boost (they
# would become part of the library's ABI by accident). Usage:
#   scripts/check-exports.sh path/to/libzrn.so
set -euo pipefail
library=${1:?usage: check-exports.sh path/to/libzrn.so}

exports=$(nm -D --defined-only "$library" | awk '{print $3}' | c++filt)
prefix='((vtable|typeinfo|typeinfo name|VTT|guard variable|construction vtable) for |(non-)?virtual thunk to )?'
leaks=$(grep -E "^${prefix}(std|boost|__gnu_cxx)::" <<<"$exports" || true)
count=$(wc -l <<<"$exports")
if [ -n "$leaks" ]; then
  echo "check-exports: $library exports symbols that are not its own:" >&2
  head -n 40 <<<"$leaks" >&2
  exit 1
fi
echo "check-exports: $count exported symbols, none from std or Boost"
