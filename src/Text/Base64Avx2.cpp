// Base64 with AVX2: the six-bit fields are moved into bytes by multiplies
// and mapped to and from the alphabet by byte shuffles of small tables.
#include "Text/Base64Kernels.h"

#if defined(ZRN_BASE64_X86_KERNELS)

#include <immintrin.h>

#define ZRN_TARGET_AVX2 __attribute__((target("avx2")))

namespace zrn::detail {

namespace {

// 24 bytes, 12 in each 128-bit half, as 32 six-bit values, one a byte.
ZRN_TARGET_AVX2 inline __m256i SixBitFields(unsigned char const* in) {
  const __m256i bytes = _mm256_set_m128i(_mm_loadu_si128(reinterpret_cast<__m128i const*>(in + 12)),
                                         _mm_loadu_si128(reinterpret_cast<__m128i const*>(in)));
  // Each group of three bytes a, b, c as the 32-bit word b a c b, whose two
  // 16-bit halves hold the first two and the last two fields.
  const __m256i words = _mm256_shuffle_epi8(
      bytes, _mm256_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10, 1, 0, 2, 1, 4, 3,
                              5, 4, 7, 6, 8, 7, 10, 9, 11, 10));
  const __m256i firstAndThird = _mm256_mulhi_epu16(
      _mm256_and_si256(words, _mm256_set1_epi32(0x0FC0FC00)), _mm256_set1_epi32(0x04000040));
  const __m256i secondAndFourth = _mm256_mullo_epi16(
      _mm256_and_si256(words, _mm256_set1_epi32(0x003F03F0)), _mm256_set1_epi32(0x01000010));
  return _mm256_or_si256(firstAndThird, secondAndFourth);
}

// Six-bit values to alphabet characters: each value's range (A-Z, a-z, 0-9,
// +, /) picks the offset added to it.
ZRN_TARGET_AVX2 inline __m256i ToAlphabet(__m256i values) {
  const __m256i offsets =
      _mm256_setr_epi8('a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                       '0' - 52, '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0,
                       'a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                       '0' - 52, '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0);
  // 0 for a-z, 1-12 for the digits, + and /, and 13 for A-Z.
  __m256i range = _mm256_subs_epu8(values, _mm256_set1_epi8(51));
  const __m256i upper = _mm256_cmpgt_epi8(_mm256_set1_epi8(26), values);
  range = _mm256_or_si256(range, _mm256_and_si256(upper, _mm256_set1_epi8(13)));
  return _mm256_add_epi8(_mm256_shuffle_epi8(offsets, range), values);
}

// Checks 32 characters by their nibbles: a character is in the alphabet
// when the bit classes of its low and high nibble share no bit. Stores the
// six-bit values in `values` and returns whether all are in it.
ZRN_TARGET_AVX2 inline bool FromAlphabet(__m256i chars, __m256i& values) {
  const __m256i lowClasses =
      _mm256_setr_epi8(0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x13, 0x1A, 0x1B,
                       0x1B, 0x1B, 0x1A, 0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11,
                       0x13, 0x1A, 0x1B, 0x1B, 0x1B, 0x1A);
  const __m256i highClasses =
      _mm256_setr_epi8(0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08, 0x10, 0x10, 0x10, 0x10, 0x10,
                       0x10, 0x10, 0x10, 0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08, 0x10, 0x10,
                       0x10, 0x10, 0x10, 0x10, 0x10, 0x10);
  // By high nibble ('/' apart): what turns the character into its value.
  const __m256i offsets =
      _mm256_setr_epi8(0, 16, 19, 4, -65, -65, -71, -71, 0, 0, 0, 0, 0, 0, 0, 0, 0, 16, 19, 4, -65,
                       -65, -71, -71, 0, 0, 0, 0, 0, 0, 0, 0);
  const __m256i slash = _mm256_set1_epi8(0x2F);
  const __m256i high = _mm256_and_si256(_mm256_srli_epi32(chars, 4), slash);
  const __m256i low = _mm256_and_si256(chars, slash);
  if (!_mm256_testz_si256(_mm256_shuffle_epi8(lowClasses, low),
                          _mm256_shuffle_epi8(highClasses, high)))
    return false;
  const __m256i isSlash = _mm256_cmpeq_epi8(chars, slash);
  values = _mm256_add_epi8(chars, _mm256_shuffle_epi8(offsets, _mm256_add_epi8(isSlash, high)));
  return true;
}

// 32 six-bit values as 24 bytes, in the low 24 bytes of the result.
ZRN_TARGET_AVX2 inline __m256i Packed(__m256i values) {
  const __m256i pairs = _mm256_maddubs_epi16(values, _mm256_set1_epi32(0x01400140));
  const __m256i groups = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00011000));
  const __m256i bytes = _mm256_shuffle_epi8(
      groups, _mm256_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1, 2, 1, 0, 6,
                               5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1));
  return _mm256_permutevar8x32_epi32(bytes, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 7, 7));
}

} // namespace

ZRN_TARGET_AVX2 std::size_t EncodeBase64Avx2(unsigned char const* in, std::size_t size,
                                             char*& out) {
  std::size_t done = 0;
  // The second half of a group reads 16 bytes from its 12th on.
  for (; size - done >= 28; done += 24, out += 32)
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), ToAlphabet(SixBitFields(in + done)));
  return done;
}

ZRN_TARGET_AVX2 std::size_t DecodeBase64Avx2(unsigned char const* in, std::size_t size,
                                             char*& out) {
  std::size_t done = 0;
  for (; size - done >= 32; done += 32, out += 24) {
    __m256i values;
    if (!FromAlphabet(_mm256_loadu_si256(reinterpret_cast<__m256i const*>(in + done)), values))
      break;
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), Packed(values));
  }
  return done;
}

} // namespace zrn::detail

#endif
