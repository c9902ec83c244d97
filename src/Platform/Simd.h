// Which vector instructions the library's text paths may use: what the
// processor has, unless the environment asks for less.
#ifndef ZRN_SRC_PLATFORM_SIMD_H
#define ZRN_SRC_PLATFORM_SIMD_H

#include <string_view>

namespace zrn::platform {

/// The instruction sets that text paths are written for, from the least.
enum class SimdLevel : unsigned char {
  kScalar, ///< portable code (SSE2 at most, which every x86-64 has)
  kAvx2,   ///< AVX2 and BMI2
  kAvx512, ///< AVX-512 F, BW, VL and VBMI
};

/// The best level this processor supports.
SimdLevel SupportedSimdLevel();

/// The level that `request` (the value of ZRN_SIMD: "scalar", "avx2" or
/// "avx512") asks for, lowered to `supported`; `supported` for any other
/// request, the empty one included.
SimdLevel RequestedSimdLevel(std::string_view request, SimdLevel supported);

/// The level the text paths use: SupportedSimdLevel, or less when the
/// environment variable ZRN_SIMD asks for less. Read once per process.
SimdLevel ActiveSimdLevel();

} // namespace zrn::platform

#endif
