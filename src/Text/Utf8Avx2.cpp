// UTF-8 blocks with AVX2, for processors that have it but not AVX-512;
// chosen at run time. Where AVX-512 compresses lanes, these use permutes and
// byte shuffles from small tables.
#include "Text/Utf8Kernels.h"

#if defined(ZRN_UTF8_X86_KERNELS)

#include <array>
#include <cstdint>
#include <immintrin.h>

#define ZRN_TARGET_AVX2 __attribute__((target("avx2,popcnt")))

namespace zrn::detail {

namespace {

// --- Tables --------------------------------------------------------------------

// For each set of up to eight lanes (one bit a lane), the permute that moves
// those lanes, in order, to the front.
struct alignas(32) LanePermute {
  std::int32_t lanes[8];
};
constexpr std::array<LanePermute, 256> MakeCompactions() {
  std::array<LanePermute, 256> table{};
  for (unsigned set = 0; set < 256; ++set) {
    int n = 0;
    for (int lane = 0; lane < 8; ++lane)
      if (set & (1u << lane))
        table[set].lanes[n++] = lane;
  }
  return table;
}
constexpr auto kCompactions = MakeCompactions();

// By the high nibble of a lead byte, repeated for both 128-bit halves of a
// byte shuffle: the value bits of the lead byte, and how far the four bytes'
// 6-bit groups, decoded as one 24-bit number, are shifted right to drop the
// bytes beyond the sequence. Continuation nibbles (8-B) get anything: their
// lanes are thrown away.
alignas(32) constexpr std::int8_t kLeadBitsByNibble[32] = {
    0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0, 0, 0, 0, 0x1F, 0x1F, 0x0F, 0x07,
    0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0x7F, 0, 0, 0, 0, 0x1F, 0x1F, 0x0F, 0x07};
alignas(32) constexpr std::int8_t kShiftByNibble[32] = {18, 18, 18, 18, 18, 18, 18, 18, 18, 18, 18,
                                                        18, 12, 12, 6,  0,  18, 18, 18, 18, 18, 18,
                                                        18, 18, 18, 18, 18, 18, 12, 12, 6,  0};

// Four units whose UTF-8 lengths less one are the 2-bit fields of a code:
// the byte shuffle that gathers, from their four 32-bit words of bytes, the
// bytes that belong to them, and how many those are.
struct alignas(16) ByteGather {
  std::int8_t shuffle[16];
};
constexpr std::array<ByteGather, 256> MakeGathers() {
  std::array<ByteGather, 256> table{};
  for (unsigned code = 0; code < 256; ++code) {
    int n = 0;
    for (int unit = 0; unit < 4; ++unit)
      for (unsigned byte = 0; byte <= ((code >> (2 * unit)) & 3); ++byte)
        table[code].shuffle[n++] = static_cast<std::int8_t>(4 * unit + byte);
    for (; n < 16; ++n)
      table[code].shuffle[n] = -1; // zero
  }
  return table;
}
constexpr std::array<unsigned char, 256> MakeGatherSizes() {
  std::array<unsigned char, 256> sizes{};
  for (unsigned code = 0; code < 256; ++code)
    for (int unit = 0; unit < 4; ++unit)
      sizes[code] = static_cast<unsigned char>(sizes[code] + ((code >> (2 * unit)) & 3) + 1);
  return sizes;
}
constexpr auto kGathers = MakeGathers();
constexpr auto kGatherSizes = MakeGatherSizes();

// Four bits spread to the even bits of a byte.
constexpr unsigned char kSpread[16] = {0x00, 0x01, 0x04, 0x05, 0x10, 0x11, 0x14, 0x15,
                                       0x40, 0x41, 0x44, 0x45, 0x50, 0x51, 0x54, 0x55};

// --- Decoding --------------------------------------------------------------------

ZRN_TARGET_AVX2 inline unsigned ByteMask(__m128i bytes, char mask, char value) {
  return static_cast<unsigned>(_mm_movemask_epi8(
      _mm_cmpeq_epi8(_mm_and_si128(bytes, _mm_set1_epi8(mask)), _mm_set1_epi8(value))));
}

ZRN_TARGET_AVX2 inline unsigned LaneMask(__m256i lanes) {
  return static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(lanes)));
}

// For each of the 8 bytes at `p`, that byte and the three after it as one
// 32-bit lane (little-endian): one byte shuffle of the 16 bytes at `p`.
ZRN_TARGET_AVX2 inline __m256i WordsAt(unsigned char const* p) {
  const __m256i bytes =
      _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<__m128i const*>(p)));
  return _mm256_shuffle_epi8(bytes,
                             _mm256_setr_epi8(0, 1, 2, 3, 1, 2, 3, 4, 2, 3, 4, 5, 3, 4, 5, 6, 4, 5,
                                              6, 7, 5, 6, 7, 8, 6, 7, 8, 9, 7, 8, 9, 10));
}

// Decodes the character that would start at each of the 8 bytes at `p`
// (16 readable) and stores those of the lanes in `starts`; returns the lanes
// whose value is invalid.
ZRN_TARGET_AVX2 inline unsigned DecodeHalf(unsigned char const* p, unsigned starts,
                                           Utf8Decoding& d) {
  const __m256i words = WordsAt(p);
  const __m256i b0 = _mm256_and_si256(words, _mm256_set1_epi32(0xFF));
  const __m256i nibble = _mm256_srli_epi32(b0, 4);
  const __m256i leadBits = _mm256_shuffle_epi8(
      _mm256_load_si256(reinterpret_cast<__m256i const*>(kLeadBitsByNibble)), nibble);
  const __m256i shift = _mm256_and_si256(
      _mm256_shuffle_epi8(_mm256_load_si256(reinterpret_cast<__m256i const*>(kShiftByNibble)),
                          nibble),
      _mm256_set1_epi32(0xFF));
  // The low six bits of the three bytes after the lead, moved next to each
  // other below the lead's bits; b0's upper bytes are zero, so the table's
  // bytes there drop out.
  const __m256i low6 = _mm256_and_si256(words, _mm256_set1_epi32(0x3F3F3F00));
  const __m256i groups = _mm256_or_si256(
      _mm256_or_si256(_mm256_slli_epi32(_mm256_and_si256(b0, leadBits), 18),
                      _mm256_slli_epi32(_mm256_and_si256(low6, _mm256_set1_epi32(0x3F00)), 4)),
      _mm256_or_si256(_mm256_srli_epi32(_mm256_and_si256(low6, _mm256_set1_epi32(0x3F0000)), 10),
                      _mm256_srli_epi32(low6, 24)));
  const __m256i value = _mm256_srlv_epi32(groups, shift);

  const __m256i surrogate = _mm256_cmpeq_epi32(_mm256_and_si256(value, _mm256_set1_epi32(~0x7FF)),
                                               _mm256_set1_epi32(0xD800));
  const __m256i tooLarge = _mm256_cmpgt_epi32(value, _mm256_set1_epi32(0x10FFFF));
  const unsigned zero = LaneMask(_mm256_cmpeq_epi32(value, _mm256_setzero_si256())) & starts;
  if (zero != 0)
    d.NoteZero(d.written + __builtin_popcount(starts & ((zero & -zero) - 1)));

  const __m256i permute =
      _mm256_load_si256(reinterpret_cast<__m256i const*>(kCompactions[starts].lanes));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(d.out + d.written),
                      _mm256_permutevar8x32_epi32(value, permute));
  d.written += __builtin_popcount(starts);
  return LaneMask(_mm256_or_si256(surrogate, tooLarge)) & starts;
}

// --- Encoding --------------------------------------------------------------------

constexpr int kLargestEncodable = 0x1FFFFF;
constexpr int kReplacement = 0xFFFD;

// The bits of `c` from `shift` up, as a continuation byte.
ZRN_TARGET_AVX2 inline __m256i ContinuationBytes(__m256i c, int shift) {
  return _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi32(c, shift), _mm256_set1_epi32(0x3F)),
                         _mm256_set1_epi32(0x80));
}

// The bits of `c` from `shift` up, as a lead byte with `marker`.
ZRN_TARGET_AVX2 inline __m256i LeadBytes(__m256i c, int shift, int marker) {
  return _mm256_or_si256(_mm256_srli_epi32(c, shift), _mm256_set1_epi32(marker));
}

// Writes the bytes of four units, gathered from their words by `code`;
// writes 16 bytes in all.
ZRN_TARGET_AVX2 inline char* StoreUnits(__m128i words, unsigned code, char* out) {
  const __m128i gather = _mm_load_si128(reinterpret_cast<__m128i const*>(kGathers[code].shuffle));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_shuffle_epi8(words, gather));
  return out + kGatherSizes[code];
}

// Eight units of ASCII as eight bytes.
ZRN_TARGET_AVX2 inline char* StoreAscii(__m256i c, char* out) {
  const __m256i lowBytes = _mm256_shuffle_epi8(
      c, _mm256_setr_epi8(0, 4, 8, 12, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 0, 4, 8, 12,
                          -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1));
  const __m256i packed =
      _mm256_permutevar8x32_epi32(lowBytes, _mm256_setr_epi32(0, 4, 0, 0, 0, 0, 0, 0));
  _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm256_castsi256_si128(packed));
  return out + 8;
}

} // namespace

// Windows of 16 bytes at fixed steps, as the AVX-512 path, in two halves of
// 8 lanes; 32 bytes of ASCII that owe nothing to the window before are
// widened as they are.
ZRN_TARGET_AVX2 bool DecodeBlocksAvx2(Utf8Decoding& d) {
  unsigned carry = 0; // continuation bytes owed by the previous window
  unsigned errors = 0;
  // A window reads 16 bytes from its 8th on.
  while (d.size - d.read >= 32) {
    unsigned char const* const p = d.in + d.read;
    const __m256i ascii = _mm256_loadu_si256(reinterpret_cast<__m256i const*>(p));
    // Whole windows of ASCII are rare in mixed text (so the branch is
    // predicted well there) and the rule in plain text.
    if ((static_cast<unsigned>(_mm256_movemask_epi8(ascii)) | carry) == 0) {
      auto* out = reinterpret_cast<__m256i*>(d.out + d.written);
      for (int i = 0; i < 4; ++i)
        _mm256_storeu_si256(out + i, _mm256_cvtepu8_epi32(_mm_loadl_epi64(
                                         reinterpret_cast<__m128i const*>(p + 8 * i))));
      d.written += 32;
      d.read += 32;
      continue;
    }
    const __m128i bytes = _mm256_castsi256_si128(ascii);
    const unsigned continuation = ByteMask(bytes, '\xC0', '\x80');
    const unsigned lead2 = ByteMask(bytes, '\xE0', '\xC0');
    const unsigned lead3 = ByteMask(bytes, '\xF0', '\xE0');
    const unsigned lead4 = ByteMask(bytes, '\xF8', '\xF0');
    const unsigned badLead = ByteMask(bytes, '\xF8', '\xF8');
    const unsigned starts = ~continuation & 0xFFFF;
    const unsigned owed =
        ((lead2 | lead3 | lead4) << 1) | ((lead3 | lead4) << 2) | (lead4 << 3) | carry;
    carry = owed >> 16;
    errors |= (continuation ^ (owed & 0xFFFF)) | badLead;
    errors |= DecodeHalf(p, starts & 0xFF, d);
    errors |= DecodeHalf(p + 8, starts >> 8, d);
    d.read += 16;
  }
  // The last window's character may still own bytes beyond it.
  for (; carry != 0; carry >>= 1, ++d.read)
    errors |= (d.in[d.read] & 0xC0) ^ 0x80;
  return errors == 0;
}

// Eight units at a time: each lane builds its unit's bytes in a 32-bit word,
// and a byte shuffle chosen by the four lengths of each half gathers them.
ZRN_TARGET_AVX2 std::size_t EncodeBlocksAvx2(std::wstring_view text, char*& out) {
  std::size_t read = 0;
  // A half's store may write twelve bytes beyond its output; the units after
  // it give at least that many.
  while (text.size() - read >= 32 + 12) {
    auto const* const units = reinterpret_cast<__m256i const*>(text.data() + read);
    // As when decoding, only long runs of ASCII take their own branch.
    const __m256i any = _mm256_or_si256(
        _mm256_or_si256(_mm256_loadu_si256(units), _mm256_loadu_si256(units + 1)),
        _mm256_or_si256(_mm256_loadu_si256(units + 2), _mm256_loadu_si256(units + 3)));
    if (_mm256_testz_si256(any, _mm256_set1_epi32(~0x7F))) {
      for (int i = 0; i < 4; ++i)
        out = StoreAscii(_mm256_loadu_si256(units + i), out);
      read += 32;
      continue;
    }
    __m256i c = _mm256_loadu_si256(units);
    read += 8;
    const __m256i largest = _mm256_set1_epi32(kLargestEncodable);
    const __m256i encodable = _mm256_cmpeq_epi32(_mm256_min_epu32(c, largest), c);
    c = _mm256_blendv_epi8(_mm256_set1_epi32(kReplacement), c, encodable);
    const __m256i two = _mm256_cmpgt_epi32(c, _mm256_set1_epi32(0x7F));
    const __m256i three = _mm256_cmpgt_epi32(c, _mm256_set1_epi32(0x7FF));
    const __m256i four = _mm256_cmpgt_epi32(c, _mm256_set1_epi32(0xFFFF));
    const __m256i last = ContinuationBytes(c, 0);
    const __m256i middle = ContinuationBytes(c, 6);
    __m256i word = _mm256_blendv_epi8(
        c, _mm256_or_si256(LeadBytes(c, 6, 0xC0), _mm256_slli_epi32(last, 8)), two);
    word = _mm256_blendv_epi8(
        word,
        _mm256_or_si256(LeadBytes(c, 12, 0xE0),
                        _mm256_or_si256(_mm256_slli_epi32(middle, 8), _mm256_slli_epi32(last, 16))),
        three);
    const unsigned fours = LaneMask(four);
    if (fours != 0)
      word = _mm256_blendv_epi8(
          word,
          _mm256_or_si256(
              _mm256_or_si256(LeadBytes(c, 18, 0xF0),
                              _mm256_slli_epi32(ContinuationBytes(c, 12), 8)),
              _mm256_or_si256(_mm256_slli_epi32(middle, 16), _mm256_slli_epi32(last, 24))),
          four);
    // A unit's length less one, in two bits: the low one is the parity of
    // the three tests (each implies the one before), the high one is `three`.
    const unsigned parity = LaneMask(two) ^ LaneMask(three) ^ fours;
    const unsigned twoPlus = LaneMask(three);
    const unsigned lowCode = kSpread[parity & 0xF] | (kSpread[twoPlus & 0xF] << 1);
    const unsigned highCode = kSpread[parity >> 4] | (kSpread[twoPlus >> 4] << 1);
    out = StoreUnits(_mm256_castsi256_si128(word), lowCode, out);
    out = StoreUnits(_mm256_extracti128_si256(word, 1), highCode, out);
  }
  return read;
}

} // namespace zrn::detail

#endif
