// UTF-8 blocks with AVX-512 (and its byte permutes), for processors that have
// it; chosen at run time.
#include "Text/Utf8Kernels.h"

#if defined(ZRN_UTF8_X86_KERNELS)

// GCC 12 reports its own placeholder for unused lanes inside these headers.
#if !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <immintrin.h>
#if !defined(__clang__)
#pragma GCC diagnostic pop
#endif

#define ZRN_TARGET_AVX512 __attribute__((target("avx512f,avx512bw,avx512vl,avx512vbmi,popcnt")))

namespace zrn::detail {

namespace {

// --- Decoding ----------------------------------------------------------------

// The 16 bytes at `p`, one per 32-bit lane.
ZRN_TARGET_AVX512 inline __m512i LanesOf(unsigned char const* p) {
  return _mm512_cvtepu8_epi32(_mm_loadu_si128(reinterpret_cast<__m128i const*>(p)));
}

// The lanes whose bits under `mask` equal `value`.
ZRN_TARGET_AVX512 inline unsigned Matching(__m512i lanes, int mask, int value) {
  return _mm512_cmpeq_epi32_mask(_mm512_and_si512(lanes, _mm512_set1_epi32(mask)),
                                 _mm512_set1_epi32(value));
}

// The value bits of lead bytes, moved to their place in the code point.
ZRN_TARGET_AVX512 inline __m512i LeadBits(__m512i lanes, int bits, int shift) {
  return _mm512_slli_epi32(_mm512_and_si512(lanes, _mm512_set1_epi32(bits)), shift);
}

// --- Encoding ----------------------------------------------------------------

constexpr int kLargestEncodable = 0x1FFFFF;
constexpr int kReplacement = 0xFFFD;

// The bits of `c` from `shift` up, as a continuation byte.
ZRN_TARGET_AVX512 inline __m512i ContinuationBytes(__m512i c, int shift) {
  return _mm512_or_si512(_mm512_and_si512(_mm512_srli_epi32(c, shift), _mm512_set1_epi32(0x3F)),
                         _mm512_set1_epi32(0x80));
}

// The bits of `c` from `shift` up, as a lead byte with `marker`.
ZRN_TARGET_AVX512 inline __m512i LeadBytes(__m512i c, int shift, int marker) {
  return _mm512_or_si512(_mm512_srli_epi32(c, shift), _mm512_set1_epi32(marker));
}

// Writes the non-zero bytes among `bytes` to `out`, in order, and returns the
// end of them. Writes 16 bytes in all.
ZRN_TARGET_AVX512 inline char* StoreNonZero(__m128i bytes, char* out) {
  const __m512i lanes = _mm512_cvtepu8_epi32(bytes);
  const __mmask16 keep = _mm512_test_epi32_mask(lanes, lanes);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out),
                   _mm512_cvtepi32_epi8(_mm512_maskz_compress_epi32(keep, lanes)));
  return out + __builtin_popcount(keep);
}

} // namespace

// Decodes windows of 16 bytes at fixed steps, so that no window waits for
// the one before: each byte's lane computes the character that would start
// there, and the lanes of the bytes that do start one are compressed into
// the output. A character that runs past its window leaves its continuation
// bytes to be checked in the next. Errors are gathered and judged at the end.
ZRN_TARGET_AVX512 bool DecodeBlocksAvx512(Utf8Decoding& d) {
  const __m512i low6 = _mm512_set1_epi32(0x3F);
  unsigned carry = 0; // continuation bytes owed by the previous window
  unsigned errors = 0;
  while (d.size - d.read >= 16 + 3) {
    unsigned char const* const p = d.in + d.read;
    const __m512i b0 = LanesOf(p);
    const __m512i b1 = LanesOf(p + 1);
    const __m512i b2 = LanesOf(p + 2);
    const __m512i b3 = LanesOf(p + 3);
    const unsigned continuation = Matching(b0, 0xC0, 0x80);
    const unsigned lead2 = Matching(b0, 0xE0, 0xC0);
    const unsigned lead3 = Matching(b0, 0xF0, 0xE0);
    const unsigned lead4 = Matching(b0, 0xF8, 0xF0);
    const unsigned starts = ~continuation & 0xFFFF;
    const unsigned owed =
        ((lead2 | lead3 | lead4) << 1) | ((lead3 | lead4) << 2) | (lead4 << 3) | carry;
    carry = owed >> 16;

    const __m512i t1 = _mm512_and_si512(b1, low6);
    const __m512i t2 = _mm512_and_si512(b2, low6);
    const __m512i t3 = _mm512_and_si512(b3, low6);
    __m512i value = b0;
    value = _mm512_mask_mov_epi32(value, lead2, _mm512_or_si512(LeadBits(b0, 0x1F, 6), t1));
    value = _mm512_mask_mov_epi32(
        value, lead3,
        _mm512_or_si512(_mm512_or_si512(LeadBits(b0, 0x0F, 12), _mm512_slli_epi32(t1, 6)), t2));
    value = _mm512_mask_mov_epi32(
        value, lead4,
        _mm512_or_si512(_mm512_or_si512(LeadBits(b0, 0x07, 18), _mm512_slli_epi32(t1, 12)),
                        _mm512_or_si512(_mm512_slli_epi32(t2, 6), t3)));

    const unsigned badLead = _mm512_cmpge_epu32_mask(b0, _mm512_set1_epi32(0xF8));
    const unsigned surrogate = _mm512_mask_cmpeq_epi32_mask(
        starts, _mm512_and_si512(value, _mm512_set1_epi32(~0x7FF)), _mm512_set1_epi32(0xD800));
    const unsigned tooLarge =
        _mm512_mask_cmpgt_epu32_mask(starts, value, _mm512_set1_epi32(0x10FFFF));
    errors |= (continuation ^ (owed & 0xFFFF)) | badLead | surrogate | tooLarge;
    const unsigned zero = _mm512_mask_cmpeq_epi32_mask(starts, value, _mm512_setzero_si512());
    if (zero != 0)
      d.NoteZero(d.written + __builtin_popcount(starts & ((zero & -zero) - 1)));

    _mm512_storeu_si512(d.out + d.written, _mm512_maskz_compress_epi32(starts, value));
    d.written += __builtin_popcount(starts);
    d.read += 16;
  }
  // The last window's character may still own bytes beyond it.
  for (; carry != 0; carry >>= 1, ++d.read)
    errors |= (d.in[d.read] & 0xC0) ^ 0x80;
  return errors == 0;
}

// Encodes 16 units at a time: each lane builds its unit's bytes in a 32-bit
// word, and the bytes that are not zero are compressed into the output. That
// needs no lengths as long as units are not 0: the first byte of each is then
// not zero either, and every continuation byte has its top bit set.
ZRN_TARGET_AVX512 std::size_t EncodeBlocksAvx512(std::wstring_view text, char*& out) {
  // The first three bytes of each word, for blocks without four-byte forms.
  alignas(64) static constexpr unsigned char kThreeOfFour[64] = {
      0,  1,  2,  4,  5,  6,  8,  9,  10, 12, 13, 14, 16, 17, 18, 20,
      21, 22, 24, 25, 26, 28, 29, 30, 32, 33, 34, 36, 37, 38, 40, 41,
      42, 44, 45, 46, 48, 49, 50, 52, 53, 54, 56, 57, 58, 60, 61, 62};
  const __m512i threeOfFour = _mm512_load_si512(kThreeOfFour);
  std::size_t read = 0;
  // A block's last store may write twelve bytes beyond its output; the units
  // after it give at least that many.
  while (text.size() - read >= 16 + 12) {
    __m512i c = _mm512_loadu_si512(text.data() + read);
    if (_mm512_testn_epi32_mask(c, c) != 0)
      break; // a NUL unit, whose byte would not be kept: left to the portable code
    read += 16;
    c = _mm512_mask_mov_epi32(c, _mm512_cmpgt_epu32_mask(c, _mm512_set1_epi32(kLargestEncodable)),
                              _mm512_set1_epi32(kReplacement));
    const __mmask16 two = _mm512_cmpge_epu32_mask(c, _mm512_set1_epi32(0x80));
    const __mmask16 three = _mm512_cmpge_epu32_mask(c, _mm512_set1_epi32(0x800));
    const __mmask16 four = _mm512_cmpge_epu32_mask(c, _mm512_set1_epi32(0x10000));
    const __m512i last = ContinuationBytes(c, 0);
    const __m512i middle = ContinuationBytes(c, 6);
    __m512i word = c;
    word = _mm512_mask_mov_epi32(
        word, two, _mm512_or_si512(LeadBytes(c, 6, 0xC0), _mm512_slli_epi32(last, 8)));
    word = _mm512_mask_mov_epi32(
        word, three,
        _mm512_or_si512(LeadBytes(c, 12, 0xE0), _mm512_or_si512(_mm512_slli_epi32(middle, 8),
                                                                _mm512_slli_epi32(last, 16))));
    if (four == 0) {
      const __m512i packed = _mm512_permutexvar_epi8(threeOfFour, word);
      out = StoreNonZero(_mm512_castsi512_si128(packed), out);
      out = StoreNonZero(_mm512_extracti32x4_epi32(packed, 1), out);
      out = StoreNonZero(_mm512_extracti32x4_epi32(packed, 2), out);
      continue;
    }
    word = _mm512_mask_mov_epi32(
        word, four,
        _mm512_or_si512(
            _mm512_or_si512(LeadBytes(c, 18, 0xF0), _mm512_slli_epi32(ContinuationBytes(c, 12), 8)),
            _mm512_or_si512(_mm512_slli_epi32(middle, 16), _mm512_slli_epi32(last, 24))));
    out = StoreNonZero(_mm512_castsi512_si128(word), out);
    out = StoreNonZero(_mm512_extracti32x4_epi32(word, 1), out);
    out = StoreNonZero(_mm512_extracti32x4_epi32(word, 2), out);
    out = StoreNonZero(_mm512_extracti32x4_epi32(word, 3), out);
  }
  return read;
}

} // namespace zrn::detail

#endif
