// UTF-8 blocks with AVX2 (and BMI2), chosen at run time for every processor
// that has them. Lanes are compressed with permutes and byte shuffles from
// small tables.
#include "Text/Utf8Kernels.h"

#if defined(ZRN_UTF8_X86_KERNELS)

#include <array>
#include <cstdint>
#include <immintrin.h>
#include <iterator>
#include <type_traits>

#define ZRN_TARGET_AVX2 __attribute__((target("avx2,bmi2,popcnt")))

namespace zrn::detail {

namespace {

// --- Tables --------------------------------------------------------------------

// For each set of up to eight lanes (one bit a lane), the indices that move
// those lanes, in order, to the front: `Entry` holds `kPerLane` indices a lane
// (its bytes, for a byte shuffle), and `kFill` after them.
template <class Entry, int kPerLane, int kFill> constexpr std::array<Entry, 256> MakeCompactions() {
  std::array<Entry, 256> table{};
  for (unsigned set = 0; set < 256; ++set) {
    auto& indices = table[set].indices;
    std::size_t n = 0;
    for (int lane = 0; lane < 8; ++lane)
      if (set & (1u << lane))
        for (int part = 0; part < kPerLane; ++part)
          indices[n++] =
              static_cast<std::remove_reference_t<decltype(indices[0])>>(kPerLane * lane + part);
    for (; n < std::size(indices); ++n)
      indices[n] = kFill;
  }
  return table;
}

// A permute of eight 32-bit lanes.
struct alignas(32) LanePermute {
  std::int32_t indices[8];
};
constexpr auto kCompactions = MakeCompactions<LanePermute, 1, 0>();

// A byte shuffle of the eight 16-bit lanes of a 128-bit half (-1 gives 0).
struct alignas(16) HalfCompaction {
  std::int8_t indices[16];
};
constexpr auto kHalfCompactions = MakeCompactions<HalfCompaction, 2, -1>();

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
      _mm256_load_si256(reinterpret_cast<__m256i const*>(kCompactions[starts].indices));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(d.out + d.written),
                      _mm256_permutevar8x32_epi32(value, permute));
  d.written += __builtin_popcount(starts);
  return LaneMask(_mm256_or_si256(surrogate, tooLarge)) & starts;
}

// Bytes at or above `floor`, as all-ones bytes (unsigned comparison).
ZRN_TARGET_AVX2 inline __m256i AtLeast(__m256i bytes, unsigned char floor) {
  return _mm256_cmpeq_epi8(_mm256_max_epu8(bytes, _mm256_set1_epi8(static_cast<char>(floor))),
                           bytes);
}

// The structure of 32 bytes, `previous` being the 32 before them: nonzero
// bytes where a byte breaks the rules. A character of n bytes owes n - 1
// continuation bytes (10xxxxxx), and no other byte may be one; bytes from
// 0xF8 never occur, nor does a surrogate's three-byte form (ED A0..BF). What
// a four-byte form encodes is checked on its value.
ZRN_TARGET_AVX2 inline __m256i StructureErrors(__m256i bytes, __m256i previous,
                                               __m256i& continuation) {
  const __m256i joined = _mm256_permute2x128_si256(previous, bytes, 0x21);
  const __m256i before1 = _mm256_alignr_epi8(bytes, joined, 15);
  const __m256i before2 = _mm256_alignr_epi8(bytes, joined, 14);
  const __m256i before3 = _mm256_alignr_epi8(bytes, joined, 13);
  const __m256i owed = _mm256_or_si256(
      _mm256_or_si256(AtLeast(before1, 0xC0), AtLeast(before2, 0xE0)), AtLeast(before3, 0xF0));
  // 0x80..0xBF are the signed bytes below -64.
  continuation = _mm256_cmpgt_epi8(_mm256_set1_epi8(-64), bytes);
  const __m256i surrogate =
      _mm256_and_si256(_mm256_cmpeq_epi8(before1, _mm256_set1_epi8('\xED')), AtLeast(bytes, 0xA0));
  return _mm256_or_si256(_mm256_or_si256(_mm256_xor_si256(owed, continuation), surrogate),
                         AtLeast(bytes, 0xF8));
}

// The 16 bytes at `p` in 16-bit lanes.
ZRN_TARGET_AVX2 inline __m256i WideBytes(unsigned char const* p) {
  return _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<__m128i const*>(p)));
}

// Decodes the characters of up to three bytes that start among the 16 bytes
// at `p` (18 readable), `starts` having one bit per start, in 16-bit lanes.
ZRN_TARGET_AVX2 inline void DecodeBmpHalf(unsigned char const* p, unsigned starts,
                                          Utf8Decoding& d) {
  const __m256i b0 = WideBytes(p);
  const __m256i t1 = _mm256_and_si256(WideBytes(p + 1), _mm256_set1_epi16(0x3F));
  const __m256i t2 = _mm256_and_si256(WideBytes(p + 2), _mm256_set1_epi16(0x3F));
  const __m256i two =
      _mm256_or_si256(_mm256_slli_epi16(_mm256_and_si256(b0, _mm256_set1_epi16(0x1F)), 6), t1);
  // The lead's marker bits drop out of the 16-bit lane.
  const __m256i three =
      _mm256_or_si256(_mm256_or_si256(_mm256_slli_epi16(b0, 12), _mm256_slli_epi16(t1, 6)), t2);
  __m256i value = _mm256_blendv_epi8(b0, two, _mm256_cmpgt_epi16(b0, _mm256_set1_epi16(0xBF)));
  value = _mm256_blendv_epi8(value, three, _mm256_cmpgt_epi16(b0, _mm256_set1_epi16(0xDF)));

  const __m256i isZero = _mm256_cmpeq_epi16(value, _mm256_setzero_si256());
  if (!_mm256_testz_si256(isZero, isZero)) {
    const unsigned zero =
        _pext_u32(static_cast<unsigned>(_mm256_movemask_epi8(isZero)), 0x55555555u) & starts;
    if (zero != 0)
      d.NoteZero(d.written + __builtin_popcount(starts & ((zero & -zero) - 1)));
  }

  const unsigned low = starts & 0xFF;
  const unsigned high = starts >> 8;
  const __m256i shuffle = _mm256_inserti128_si256(
      _mm256_castsi128_si256(
          _mm_load_si128(reinterpret_cast<__m128i const*>(kHalfCompactions[low].indices))),
      _mm_load_si128(reinterpret_cast<__m128i const*>(kHalfCompactions[high].indices)), 1);
  const __m256i packed = _mm256_shuffle_epi8(value, shuffle);
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(d.out + d.written),
                      _mm256_cvtepu16_epi32(_mm256_castsi256_si128(packed)));
  d.written += __builtin_popcount(low);
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(d.out + d.written),
                      _mm256_cvtepu16_epi32(_mm256_extracti128_si256(packed, 1)));
  d.written += __builtin_popcount(high);
}

// The 32 ASCII bytes at `p` as units.
ZRN_TARGET_AVX2 inline void WidenAscii(unsigned char const* p, Utf8Decoding& d) {
  auto* out = reinterpret_cast<__m256i*>(d.out + d.written);
  for (int i = 0; i < 4; ++i)
    _mm256_storeu_si256(out + i, _mm256_cvtepu8_epi32(
                                     _mm_loadl_epi64(reinterpret_cast<__m128i const*>(p + 8 * i))));
  d.written += 32;
}

// The continuation bytes that the character cut at `p` still owes, one bit
// per byte from `p` on, for valid bytes before `p`.
inline unsigned OwedAfter(unsigned char const* p) {
  const unsigned b1 = p[-1], b2 = p[-2], b3 = p[-3];
  const unsigned length1 = b1 >= 0xF0 ? 4 : b1 >= 0xE0 ? 3 : b1 >= 0xC0 ? 2 : 1;
  const unsigned length2 = b2 >= 0xF0 ? 4 : b2 >= 0xE0 ? 3 : 1;
  const unsigned length3 = b3 >= 0xF0 ? 4 : 1;
  return ((1u << (length1 - 1)) - 1) | (((1u << (length2 - 1)) - 1) >> 1) |
         (((1u << (length3 - 1)) - 1) >> 2);
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

// Blocks of 32 bytes while 40 remain; then windows of 16 bytes at fixed
// steps, in two halves of 8 lanes, where 32 bytes of ASCII that owe nothing
// to the window before are widened as they are.
[[gnu::always_inline]] ZRN_TARGET_AVX2 inline bool DecodeAvx2(Utf8Decoding& d) {
  unsigned carry = 0; // continuation bytes owed by the previous window
  unsigned errors = 0;
  // Blocks of 32 bytes whose structure is checked as a whole first: then
  // each needs only its values, of which those of up to three bytes fit 16
  // bits. A block reads 8 bytes beyond itself.
  if (d.size >= 64) {
    __m256i previous = _mm256_setzero_si256();
    __m256i structure = _mm256_setzero_si256();
    while (d.size - d.read >= 40) {
      unsigned char const* const p = d.in + d.read;
      const __m256i bytes = _mm256_loadu_si256(reinterpret_cast<__m256i const*>(p));
      __m256i continuation;
      structure = _mm256_or_si256(structure, StructureErrors(bytes, previous, continuation));
      previous = bytes;
      d.read += 32;
      if (_mm256_movemask_epi8(bytes) == 0) {
        WidenAscii(p, d);
        continue;
      }
      const unsigned starts = ~static_cast<unsigned>(_mm256_movemask_epi8(continuation));
      if (_mm256_movemask_epi8(AtLeast(bytes, 0xF0)) == 0) {
        DecodeBmpHalf(p, starts & 0xFFFF, d);
        DecodeBmpHalf(p + 16, starts >> 16, d);
      } else {
        for (int i = 0; i < 4; ++i)
          errors |= DecodeHalf(p + 8 * i, (starts >> (8 * i)) & 0xFF, d);
      }
    }
    // At least 8 bytes follow the last block; a surrogate's lead that ends
    // it has its second byte checked here.
    unsigned char const* const next = d.in + d.read;
    if (!_mm256_testz_si256(structure, structure) || (next[-1] == 0xED && next[0] >= 0xA0))
      return false;
    carry = OwedAfter(next);
  }
  // A window reads 16 bytes from its 8th on.
  while (d.size - d.read >= 32) {
    unsigned char const* const p = d.in + d.read;
    const __m256i ascii = _mm256_loadu_si256(reinterpret_cast<__m256i const*>(p));
    // Whole windows of ASCII are rare in mixed text (so the branch is
    // predicted well there) and the rule in plain text.
    if ((static_cast<unsigned>(_mm256_movemask_epi8(ascii)) | carry) == 0) {
      WidenAscii(p, d);
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

} // namespace

ZRN_TARGET_AVX2 bool DecodeBlocksAvx2(Utf8Decoding& decoding) {
  // On a copy, whose address never leaves this function, so that its
  // counters stay in registers.
  Utf8Decoding d = decoding;
  const bool valid = DecodeAvx2(d);
  decoding = d;
  return valid;
}

namespace {

// Eight units of any kind: each lane builds its unit's bytes in a 32-bit
// word, and a byte shuffle chosen by the four lengths of each half gathers
// them. Writes 32 bytes from `out`.
ZRN_TARGET_AVX2 char* EncodeEight(__m256i c, char* out) {
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
            _mm256_or_si256(LeadBytes(c, 18, 0xF0), _mm256_slli_epi32(ContinuationBytes(c, 12), 8)),
            _mm256_or_si256(_mm256_slli_epi32(middle, 16), _mm256_slli_epi32(last, 24))),
        four);
  // A unit's length less one, in two bits: the low one is the parity of
  // the three tests (each implies the one before), the high one is `three`.
  const unsigned parity = LaneMask(two) ^ LaneMask(three) ^ fours;
  const unsigned twoPlus = LaneMask(three);
  const unsigned lowCode = kSpread[parity & 0xF] | (kSpread[twoPlus & 0xF] << 1);
  const unsigned highCode = kSpread[parity >> 4] | (kSpread[twoPlus >> 4] << 1);
  out = StoreUnits(_mm256_castsi256_si128(word), lowCode, out);
  return StoreUnits(_mm256_extracti128_si256(word, 1), highCode, out);
}

// The constants of EncodeSixteenBmp, made once per text. Each goes through
// an empty assembler statement, so that the compiler keeps it (in a register,
// or on the stack as an operand) instead of building it again in every step.
struct BmpConstants {
  __m256i k7F, k7FF, k3F, k80, kC0, kE0;

  ZRN_TARGET_AVX2 BmpConstants()
      : k7F(Opaque(0x7F)), k7FF(Opaque(0x7FF)), k3F(Opaque(0x3F)), k80(Opaque(0x80)),
        kC0(Opaque(0xC0)), kE0(Opaque(0xE0)) {}

  ZRN_TARGET_AVX2 static __m256i Opaque(short value) {
    __m256i lanes = _mm256_set1_epi16(value);
    asm("" : "+x"(lanes));
    return lanes;
  }
};

// Sixteen units below U+10000, in 16-bit lanes: each lane builds its first
// two bytes and its last, and unpacking the two gives each unit's bytes in a
// 32-bit word for StoreUnits. Writes up to 12 bytes beyond its output.
ZRN_TARGET_AVX2 inline char* EncodeSixteenBmp(__m256i first, __m256i second, char* out,
                                              BmpConstants const& k) {
  const __m256i c = _mm256_permute4x64_epi64(_mm256_packus_epi32(first, second), 0xD8);
  const __m256i ascii = _mm256_cmpeq_epi16(_mm256_min_epu16(c, k.k7F), c);
  const __m256i upTo2 = _mm256_cmpeq_epi16(_mm256_min_epu16(c, k.k7FF), c);
  const __m256i last = _mm256_or_si256(_mm256_and_si256(c, k.k3F), k.k80);
  const __m256i middle = _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi16(c, 6), k.k3F), k.k80);
  const __m256i lead2 = _mm256_or_si256(_mm256_srli_epi16(c, 6), k.kC0);
  const __m256i lead3 = _mm256_or_si256(_mm256_srli_epi16(c, 12), k.kE0);
  const __m256i byte0 = _mm256_blendv_epi8(lead3, _mm256_blendv_epi8(lead2, c, ascii), upTo2);
  const __m256i byte1 = _mm256_blendv_epi8(middle, last, upTo2);
  const __m256i head = _mm256_or_si256(byte0, _mm256_slli_epi16(byte1, 8));
  // Units 0-3 and 8-11, then 4-7 and 12-15.
  const __m256i words03 = _mm256_unpacklo_epi16(head, last);
  const __m256i words47 = _mm256_unpackhi_epi16(head, last);
  // Two bits a unit, its length less one: 0, 1 or 2.
  const auto multi = ~static_cast<unsigned>(_mm256_movemask_epi8(ascii));
  const auto long3 = ~static_cast<unsigned>(_mm256_movemask_epi8(upTo2));
  const unsigned codes = ((multi ^ long3) & 0x55555555u) | (long3 & 0xAAAAAAAAu);
  out = StoreUnits(_mm256_castsi256_si128(words03), codes & 0xFF, out);
  out = StoreUnits(_mm256_castsi256_si128(words47), (codes >> 8) & 0xFF, out);
  out = StoreUnits(_mm256_extracti128_si256(words03, 1), (codes >> 16) & 0xFF, out);
  return StoreUnits(_mm256_extracti128_si256(words47, 1), codes >> 24, out);
}

// Sixteen units of any kind: runs of ASCII are narrowed as they are, units
// of up to three bytes are built in 16-bit lanes, and a block with larger
// units takes the general eight-unit step. Writes up to 12 bytes beyond its
// output.
ZRN_TARGET_AVX2 inline char* EncodeSixteen(__m256i first, __m256i second, char* out,
                                           BmpConstants const& k) {
  const __m256i any = _mm256_or_si256(first, second);
  if (_mm256_testz_si256(any, _mm256_set1_epi32(~0x7F)))
    return StoreAscii(second, StoreAscii(first, out));
  if (_mm256_testz_si256(any, _mm256_set1_epi32(~0xFFFF)))
    return EncodeSixteenBmp(first, second, out, k);
  return EncodeEight(second, EncodeEight(first, out));
}

// The 32 bytes at `p`, which is aligned to them. Written in assembly: the
// half block after a text's terminator is read too, and address checkers,
// which know only the text's own bytes, would take that for an overrun (the
// load cannot fault: an aligned block never crosses a page).
ZRN_TARGET_AVX2 inline __m256i LoadAlignedHalf(wchar_t const* p) {
  struct alignas(32) Half {
    char bytes[32];
  };
  __m256i lanes;
  asm("vmovdqa %1, %0" : "=x"(lanes) : "m"(*reinterpret_cast<Half const*>(p)));
  return lanes;
}

} // namespace

ZRN_TARGET_AVX2 std::size_t EncodeBlocksAvx2(std::wstring_view text, char*& output) {
  // A copy of the output pointer: the bytes written through it could alias
  // the caller's, which would then be stored and reloaded at every step.
  char* out = output;
  const BmpConstants constants;
  std::size_t read = 0;
  // A step's last store may write twelve bytes beyond its output; the units
  // after it give at least that many.
  while (text.size() - read >= 32 + 12) {
    auto const* const units = reinterpret_cast<__m256i const*>(text.data() + read);
    out = EncodeSixteen(_mm256_loadu_si256(units), _mm256_loadu_si256(units + 1), out, constants);
    read += 16;
  }
  output = out;
  return read;
}

ZRN_TARGET_AVX2 std::size_t EncodeTerminatedBlocksAvx2(wchar_t const* text, std::size_t limit,
                                                       char*& output) {
  char* out = output;
  const BmpConstants constants;
  std::size_t read = 0;
  for (; limit - read >= kEncodeBlockUnits; read += kEncodeBlockUnits) {
    const __m256i first = LoadAlignedHalf(text + read);
    const __m256i second = LoadAlignedHalf(text + read + kEncodeBlockUnits / 2);
    // The block that holds the terminator is left to the caller.
    const __m256i zero =
        _mm256_cmpeq_epi32(_mm256_min_epu32(first, second), _mm256_setzero_si256());
    if (!_mm256_testz_si256(zero, zero))
      break;
    out = EncodeSixteen(first, second, out, constants);
  }
  output = out;
  return read;
}

} // namespace zrn::detail

#endif
