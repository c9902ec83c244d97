#include "Platform/Simd.h"

#include <algorithm>
#include <cstdlib>

namespace zrn::platform {

SimdLevel SupportedSimdLevel() {
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
  __builtin_cpu_init();
  if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
      __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vbmi"))
    return SimdLevel::kAvx512;
  if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi2"))
    return SimdLevel::kAvx2;
#endif
  return SimdLevel::kScalar;
}

SimdLevel RequestedSimdLevel(std::string_view request, SimdLevel supported) {
  SimdLevel wanted = supported;
  if (request == "scalar")
    wanted = SimdLevel::kScalar;
  else if (request == "avx2")
    wanted = SimdLevel::kAvx2;
  else if (request == "avx512")
    wanted = SimdLevel::kAvx512;
  return std::min(wanted, supported);
}

SimdLevel ActiveSimdLevel() {
  // Read once: the paths must not change while the process runs, and
  // getenv is not safe against a concurrent setenv.
  static const SimdLevel level = [] {
    char const* const request = std::getenv("ZRN_SIMD");
    return RequestedSimdLevel(request ? request : "", SupportedSimdLevel());
  }();
  return level;
}

} // namespace zrn::platform
