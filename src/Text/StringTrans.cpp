#include <zrn/Text/StringTrans.h>

#include "Text/Iconv.h"
#include "Text/Utf8.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <memory>
#include <string_view>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

// Processors with AVX-512 (and its byte permutes) get UTF-8 paths of their
// own, chosen at run time; the others take the portable ones.
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define ZRN_UTF8_AVX512 1
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
#endif

namespace zrn {

namespace {

constexpr char kDefaultLocale[] = "chs";
constexpr std::size_t kInvalid = static_cast<std::size_t>(-1);
// Below this many units a roomy result array is not worth a second copy.
constexpr std::size_t kShrinkThreshold = 4096;

template <class Char> Char* NewArray(std::basic_string_view<Char> text) {
  auto* array = new Char[text.size() + 1];
  std::memcpy(array, text.data(), text.size() * sizeof(Char));
  array[text.size()] = Char();
  return array;
}

bool HasAvx512() {
#if defined(ZRN_UTF8_AVX512)
  static const bool has = [] {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
           __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vbmi");
  }();
  return has;
#else
  return false;
#endif
}

// --- UTF-8 decoding -------------------------------------------------------------
//
// Branch-free where it matters: in text with a few percent of non-ASCII
// characters at random places, branches on the kind of character would be
// mispredicted at nearly every one of them.

// By lead byte: the length of its sequence, 0 for a byte that cannot lead.
constexpr std::array<unsigned char, 256> MakeLeadLengths() {
  std::array<unsigned char, 256> lengths{};
  for (std::size_t b = 0; b < 256; ++b)
    lengths[b] = b < 0x80 ? 1 : b < 0xC0 ? 0 : b < 0xE0 ? 2 : b < 0xF0 ? 3 : b < 0xF8 ? 4 : 0;
  return lengths;
}
constexpr auto kLeadLengths = MakeLeadLengths();

// By sequence length: the value bits of the lead byte, and where the
// continuation bytes' top two bits sit in the sequence's first four bytes
// (little-endian) with the value they must have (10).
constexpr std::uint32_t kLeadBits[5] = {0, 0x7F, 0x1F, 0x0F, 0x07};
constexpr std::uint32_t kContinuationMask[5] = {0, 0, 0xC000, 0xC0C000, 0xC0C0C000};
constexpr std::uint32_t kContinuationBits[5] = {0, 0, 0x8000, 0x808000, 0x80808000};

// Decodes the character that starts at `in`, of which `left` bytes belong to
// the text (at least four are readable); stores its value and returns its
// length, or 0 when the text is invalid there.
inline std::size_t DecodeChar(unsigned char const* in, std::size_t left, char32_t& value) {
  const std::size_t length = kLeadLengths[in[0]];
  const std::uint32_t b0 = in[0], b1 = in[1], b2 = in[2], b3 = in[3];
  const std::uint32_t word = b0 | (b1 << 8) | (b2 << 16) | (b3 << 24);
  // All four bytes are decoded; the shift drops those beyond the sequence.
  const std::uint32_t bits =
      ((b0 & kLeadBits[length]) << 18) | ((b1 & 0x3F) << 12) | ((b2 & 0x3F) << 6) | (b3 & 0x3F);
  value = bits >> (6 * (4 - length));
  const bool valid = (length != 0) & (length <= left) &
                     ((word & kContinuationMask[length]) == kContinuationBits[length]) &
                     ((value < 0xD800) | (value > 0xDFFF)) & (value <= 0x10FFFF);
  return valid ? length : 0;
}

// The portable path converts each run of ASCII a block at a time, then the
// one character that ends it, without branching on whether the block was all
// ASCII.

#if defined(__SSE2__)
constexpr std::size_t kDecodeBlock = 16;

// Widens the 16 bytes at `in` into 16 units at `out`; returns how many of
// them, from the first, are ASCII (only those units are meaningful).
inline std::size_t WidenAsciiBlock(unsigned char const* in, wchar_t* out) {
  const __m128i bytes = _mm_loadu_si128(reinterpret_cast<__m128i const*>(in));
  const __m128i zero = _mm_setzero_si128();
  const __m128i low = _mm_unpacklo_epi8(bytes, zero);
  const __m128i high = _mm_unpackhi_epi8(bytes, zero);
  auto* units = reinterpret_cast<__m128i*>(out);
  _mm_storeu_si128(units, _mm_unpacklo_epi16(low, zero));
  _mm_storeu_si128(units + 1, _mm_unpackhi_epi16(low, zero));
  _mm_storeu_si128(units + 2, _mm_unpacklo_epi16(high, zero));
  _mm_storeu_si128(units + 3, _mm_unpackhi_epi16(high, zero));
  // The extra bit stops the count at the block's end.
  const auto nonAscii = static_cast<unsigned>(_mm_movemask_epi8(bytes)) | (1u << kDecodeBlock);
  return static_cast<std::size_t>(__builtin_ctz(nonAscii));
}

#else
constexpr std::size_t kDecodeBlock = 8;

inline std::size_t WidenAsciiBlock(unsigned char const* in, wchar_t* out) {
  std::size_t ascii = 0;
  for (; ascii < kDecodeBlock && in[ascii] < 0x80; ++ascii)
    out[ascii] = static_cast<wchar_t>(in[ascii]);
  return ascii;
}

#endif

// One decoding of `size` bytes into `out`, which has room for `size` units
// (never more units than bytes): the block loops run first, then the tail.
struct Utf8Decoding {
  unsigned char const* in;
  std::size_t size;
  wchar_t* out;
  std::size_t read = 0;
  std::size_t written = 0; // never ahead of `read`, so blocks stay in `out`
  std::size_t firstZero = kInvalid;

  // Decodes the character at `read`, found at `at` (the text or a copy of it
  // with four readable bytes).
  bool DecodeNext(unsigned char const* at) {
    char32_t value = 0;
    const std::size_t length = DecodeChar(at, size - read, value);
    NoteZero(value == 0, written);
    out[written++] = static_cast<wchar_t>(value);
    read += length;
    return length != 0;
  }

  // A decoded 0 ends the text. Only an overlong form decodes to 0: the text
  // has no NUL bytes.
  void NoteZero(bool zero, std::size_t at) {
    if (zero && firstZero == kInvalid)
      firstZero = at;
  }

  // Decodes the bytes left, from a copy with room to read four at a time.
  bool DecodeTail() {
    unsigned char tail[kDecodeBlock + 8] = {};
    const std::size_t tailStart = read;
    std::memcpy(tail, in + read, size - read);
    while (read < size)
      if (!DecodeNext(tail + (read - tailStart)))
        return false;
    return true;
  }

  std::size_t Length() const { return firstZero == kInvalid ? written : firstZero; }
};

bool DecodeBlocks(Utf8Decoding& d) {
  // A block reads sixteen bytes and a character four: both stay inside the
  // text while this many bytes remain.
  while (d.size - d.read >= kDecodeBlock + 4) {
    const std::size_t ascii = WidenAsciiBlock(d.in + d.read, d.out + d.written);
    d.read += ascii;
    d.written += ascii;
    if (!d.DecodeNext(d.in + d.read))
      return false;
  }
  return true;
}

#if defined(ZRN_UTF8_AVX512)
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
      d.NoteZero(true, d.written + __builtin_popcount(starts & ((zero & -zero) - 1)));

    _mm512_storeu_si512(d.out + d.written, _mm512_maskz_compress_epi32(starts, value));
    d.written += __builtin_popcount(starts);
    d.read += 16;
  }
  // The last window's character may still own bytes beyond it.
  for (; carry != 0; carry >>= 1, ++d.read)
    errors |= (d.in[d.read] & 0xC0) ^ 0x80;
  return errors == 0;
}
#endif

// Decodes all `size` bytes into `out` (room for `size` units); returns the
// length of the text up to the first decoded 0, or kInvalid. The whole input
// is checked even past a decoded 0, since invalid bytes anywhere void it.
std::size_t DecodeUtf8(unsigned char const* in, std::size_t size, wchar_t* out) {
  Utf8Decoding decoding{in, size, out};
#if defined(ZRN_UTF8_AVX512)
  const bool blocks = HasAvx512() ? DecodeBlocksAvx512(decoding) : DecodeBlocks(decoding);
#else
  const bool blocks = DecodeBlocks(decoding);
#endif
  return blocks && decoding.DecodeTail() ? decoding.Length() : kInvalid;
}

// --- UTF-8 encoding -------------------------------------------------------------
//
// Each unit is encoded by itself, as everywhere else the library writes UTF-8
// (detail::AppendUtf8, which the portable path uses as it is).

#if defined(ZRN_UTF8_AVX512)
// Units above U+1FFFFF, which four bytes cannot hold, are written as U+FFFD.
constexpr char32_t kLargestEncodable = 0x1FFFFF;
constexpr char32_t kReplacement = 0xFFFD;

// Encodes the units from `read` on; returns the end of the output.
unsigned char* EncodeTail(std::wstring_view text, std::size_t read, unsigned char* out) {
  const std::string bytes = detail::ToUtf8(text.substr(read));
  std::memcpy(out, bytes.data(), bytes.size());
  return out + bytes.size();
}

ZRN_TARGET_AVX512 inline std::size_t Count(unsigned mask) {
  return static_cast<std::size_t>(__builtin_popcount(mask));
}

// From this many units on, encoding skips the measuring pass.
constexpr std::size_t kOnePassUnits = std::size_t{1} << 16;

// The size of the UTF-8 form of `text`, which holds no NUL. The last block
// is read with a mask, so nothing beyond the text is touched.
ZRN_TARGET_AVX512 std::size_t Utf8SizeAvx512(std::wstring_view text) {
  std::size_t size = 0;
  for (std::size_t i = 0; i < text.size(); i += 16) {
    const std::size_t n = std::min<std::size_t>(16, text.size() - i);
    const auto lanes = static_cast<__mmask16>(n == 16 ? 0xFFFF : (1u << n) - 1);
    const __m512i c = _mm512_maskz_loadu_epi32(lanes, text.data() + i);
    size += Count(lanes) + Count(_mm512_mask_cmpge_epu32_mask(lanes, c, _mm512_set1_epi32(0x80))) +
            Count(_mm512_mask_cmpge_epu32_mask(lanes, c, _mm512_set1_epi32(0x800))) +
            Count(_mm512_mask_cmpge_epu32_mask(lanes, c, _mm512_set1_epi32(0x10000))) -
            Count(_mm512_mask_cmpgt_epu32_mask(lanes, c, _mm512_set1_epi32(kLargestEncodable)));
  }
  return size;
}

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
ZRN_TARGET_AVX512 inline unsigned char* StoreNonZero(__m128i bytes, unsigned char* out) {
  const __m512i lanes = _mm512_cvtepu8_epi32(bytes);
  const __mmask16 keep = _mm512_test_epi32_mask(lanes, lanes);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out),
                   _mm512_cvtepi32_epi8(_mm512_maskz_compress_epi32(keep, lanes)));
  return out + __builtin_popcount(keep);
}

// Encodes 16 units at a time: each lane builds its unit's bytes in a 32-bit
// word, and the bytes that are not zero are compressed into the output. That
// needs no lengths: units are never 0, so the first byte of each is not zero
// either, and every continuation byte has its top bit set.
ZRN_TARGET_AVX512 unsigned char* EncodeUtf8Avx512(std::wstring_view text, unsigned char* out) {
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
  return EncodeTail(text, read, out);
}
#endif

// `text` in UTF-8 in a new array of exactly the size it needs.
char* EncodeUtf8(wchar_t const* text) {
#if defined(ZRN_UTF8_AVX512)
  if (HasAvx512()) {
    const std::wstring_view units(text, std::wcslen(text));
    // A large text is encoded in one pass into room for its worst case (four
    // bytes a unit): the pages it leaves untouched are never backed by
    // memory. A small one is measured first, so that its array is exact.
    const std::size_t room =
        units.size() >= kOnePassUnits ? 4 * units.size() : Utf8SizeAvx512(units);
    char* const result = new char[room + 1];
    *EncodeUtf8Avx512(units, reinterpret_cast<unsigned char*>(result)) = 0;
    return result;
  }
#endif
  return NewArray<char>(detail::ToUtf8(text));
}

} // namespace

GStdStringTrans::~GStdStringTrans() = default;

std::string GStdStringTrans::WstringToString(std::wstring const& text) {
  return detail::EncodeWide(text, kDefaultLocale, 2 * text.size());
}

std::string GStdStringTrans::WstringToString(std::wstring const& text, std::string const& locale) {
  return detail::EncodeWide(text, locale, 2 * text.size());
}

std::string GStdStringTrans::WstringToString(wchar_t const* text) {
  return WstringToString(std::wstring(text));
}

std::wstring GStdStringTrans::StringToWString(std::string const& text) {
  return detail::DecodeNarrow(text, kDefaultLocale);
}

std::wstring GStdStringTrans::StringToWString(char const* text) {
  return detail::DecodeNarrow(text, kDefaultLocale);
}

wchar_t* GStdStringTrans::AnsiToUnicode(char const* text) {
  return NewArray<wchar_t>(StringToWString(text));
}

char* GStdStringTrans::UnicodeToAnsi(wchar_t const* text) {
  return NewArray<char>(WstringToString(text));
}

char* GStdStringTrans::UnicodeToAnsi(wchar_t const* text, std::string const& locale) {
  return NewArray<char>(WstringToString(std::wstring(text), locale));
}

wchar_t* GStdStringTrans::Utf8ToUnicode(char const* text) {
  const std::size_t size = std::strlen(text);
  // Decoded straight into the result: never more units than bytes.
  std::unique_ptr<wchar_t[]> units(new wchar_t[size + 1]);
  const std::size_t length =
      DecodeUtf8(reinterpret_cast<unsigned char const*>(text), size, units.get());
  if (length == kInvalid)
    return new wchar_t[1]();
  if (size > kShrinkThreshold && length < size / 2)
    return NewArray<wchar_t>({units.get(), length});
  units[length] = L'\0';
  return units.release();
}

char* GStdStringTrans::UnicodeToUtf8(wchar_t const* text) { return EncodeUtf8(text); }

std::string GStdStringTrans::Utf8ToAnsi(char const* text) {
  const std::unique_ptr<wchar_t[]> wide(Utf8ToUnicode(text));
  return WstringToString(wide.get());
}

} // namespace zrn
