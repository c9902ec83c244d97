#include "Text/Utf8.h"

#include "Platform/Simd.h"
#include "Text/Utf8Kernels.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <memory>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace zrn::detail {

namespace {

using platform::SimdLevel;

// Units above this, which four bytes cannot hold, are written as U+FFFD.
constexpr char32_t kLargestEncodable = 0x1FFFFF;
constexpr char32_t kReplacement = 0xFFFD;
// A terminated text's first units are encoded on the stack, and a text that
// ends among them is copied to an array of its size.
constexpr std::size_t kStackUnits = 4096;
// A longer one grows its array, with room for four bytes a unit, to this
// many times the units read (then to twice them beyond kSteepGrowthUnits):
// steps large enough that few bytes are copied on the way.
constexpr std::size_t kGrowth = 8;
constexpr std::size_t kSteepGrowthUnits = std::size_t{1} << 24;
// A result below this size is given an array of its size.
constexpr std::size_t kShrinkBytes = std::size_t{1} << 18;

// --- Encoding ----------------------------------------------------------------

char* EncodeUnit(char32_t c, char* p) {
  if (c > kLargestEncodable)
    c = kReplacement;
  if (c < 0x80) {
    *p++ = static_cast<char>(c);
  } else if (c < 0x800) {
    *p++ = static_cast<char>(0xC0 | (c >> 6));
    *p++ = static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    *p++ = static_cast<char>(0xE0 | (c >> 12));
    *p++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    *p++ = static_cast<char>(0x80 | (c & 0x3F));
  } else {
    *p++ = static_cast<char>(0xF0 | (c >> 18));
    *p++ = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    *p++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    *p++ = static_cast<char>(0x80 | (c & 0x3F));
  }
  return p;
}

char* EncodeUnits(std::wstring_view text, char* p) {
  for (wchar_t unit : text) {
    const auto c = static_cast<char32_t>(unit);
    if (c < 0x80)
      *p++ = static_cast<char>(c);
    else
      p = EncodeUnit(c, p);
  }
  return p;
}

// Encodes units from `p` until the terminator or `end`, moving `p` past the
// units encoded; true when it stopped at the terminator.
bool EncodeUntilZero(wchar_t const*& p, wchar_t const* end, char*& out) {
  // On copies, so that they stay in registers.
  wchar_t const* in = p;
  char* o = out;
  bool ended = false;
  for (; in != end; ++in) {
    const auto c = static_cast<char32_t>(*in);
    if (c < 0x80) {
      ended = c == 0;
      if (ended)
        break;
      *o++ = static_cast<char>(c);
    } else {
      o = EncodeUnit(c, o);
    }
  }
  p = in;
  out = o;
  return ended;
}

// Encodes the terminated text from `p`, at most `limit` units, into `out`,
// which has room for four bytes a unit and kEncodeSlack more; moves both past
// what it did and returns true when it reached the terminator. Every unit is
// read once: the vector path looks for the terminator in the blocks it loads.
bool EncodeTerminated(wchar_t const*& p, std::size_t limit, char*& out) {
  wchar_t const* const end = p + limit;
#if defined(ZRN_UTF8_X86_KERNELS)
  const auto address = reinterpret_cast<std::uintptr_t>(p);
  constexpr std::size_t kBlockBytes = kEncodeBlockUnits * sizeof(wchar_t);
  if (platform::ActiveSimdLevel() >= SimdLevel::kAvx2 && address % sizeof(wchar_t) == 0) {
    // Units one at a time up to a block's boundary, so that the kernel loads
    // whole aligned blocks.
    const std::size_t head = (kBlockBytes - address % kBlockBytes) % kBlockBytes / sizeof(wchar_t);
    if (EncodeUntilZero(p, p + std::min(head, limit), out))
      return true;
    p += EncodeTerminatedBlocksAvx2(p, static_cast<std::size_t>(end - p), out);
  }
#endif
  return EncodeUntilZero(p, end, out);
}

char* NewArrayOf(char const* bytes, std::size_t size) {
  char* const result = new char[size + 1];
  std::memcpy(result, bytes, size);
  result[size] = '\0';
  return result;
}

// --- Decoding ----------------------------------------------------------------
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

// Decodes the character at `d.read`, found at `at` (the text or a copy of it
// with four readable bytes). Forced inline: called once per character from
// three loops, it would otherwise stay a call, and the decoding's counters
// would go through memory on every character (half the portable path's
// speed).
[[gnu::always_inline]] inline bool DecodeNext(Utf8Decoding& d, unsigned char const* at) {
  char32_t value = 0;
  const std::size_t length = DecodeChar(at, d.size - d.read, value);
  if (value == 0)
    d.NoteZero(d.written);
  d.out[d.written++] = static_cast<wchar_t>(value);
  d.read += length;
  return length != 0;
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

bool DecodeBlocks(Utf8Decoding& decoding) {
  // On a copy, whose address never leaves this function, so that its
  // counters stay in registers.
  Utf8Decoding d = decoding;
  bool valid = true;
  // A block reads sixteen bytes and a character four: both stay inside the
  // text while this many bytes remain.
  while (valid && d.size - d.read >= kDecodeBlock + 4) {
    const std::size_t ascii = WidenAsciiBlock(d.in + d.read, d.out + d.written);
    d.read += ascii;
    d.written += ascii;
    valid = DecodeNext(d, d.in + d.read);
  }
  decoding = d;
  return valid;
}

// Decodes the bytes left, from a copy with room to read four at a time; the
// kernels leave fewer than 32.
bool DecodeTail(Utf8Decoding& d) {
  constexpr std::size_t kTailRoom = 32;
  while (d.size - d.read >= kTailRoom)
    if (!DecodeNext(d, d.in + d.read))
      return false;
  unsigned char tail[kTailRoom + 4] = {};
  const std::size_t tailStart = d.read;
  std::memcpy(tail, d.in + d.read, d.size - d.read);
  while (d.read < d.size)
    if (!DecodeNext(d, tail + (d.read - tailStart)))
      return false;
  return true;
}

bool DecodeBlocksAtLevel(Utf8Decoding& d) {
#if defined(ZRN_UTF8_X86_KERNELS)
  // AVX-512 processors take the AVX2 kernels, which measured faster there.
  if (platform::ActiveSimdLevel() >= SimdLevel::kAvx2)
    return DecodeBlocksAvx2(d);
#endif
  return DecodeBlocks(d);
}

} // namespace

std::size_t Utf8Size(std::wstring_view text) {
  // Branch-free, so that the compiler vectorises it.
  std::size_t size = 0;
  for (wchar_t unit : text) {
    const auto c = static_cast<char32_t>(unit);
    size += 1 + (c >= 0x80) + (c >= 0x800) + (c >= 0x10000) - (c > kLargestEncodable);
  }
  return size;
}

char* EncodeUtf8(std::wstring_view text, char* out) {
  std::size_t done = 0;
#if defined(ZRN_UTF8_X86_KERNELS)
  if (platform::ActiveSimdLevel() >= SimdLevel::kAvx2)
    done = EncodeBlocksAvx2(text, out);
#endif
  return EncodeUnits(text.substr(done), out);
}

void AppendUtf8(std::string& out, std::wstring_view text) {
  const std::size_t start = out.size();
  out.resize(start + Utf8Size(text));
  EncodeUtf8(text, out.data() + start);
}

char* NewUtf8Array(wchar_t const* text) {
  char first[4 * kStackUnits + kEncodeSlack];
  char* out = first;
  wchar_t const* p = text;
  if (EncodeTerminated(p, kStackUnits, out))
    return NewArrayOf(first, static_cast<std::size_t>(out - first));
  // Room for the worst case of each step: the pages the text does not need
  // are never backed by memory.
  std::unique_ptr<char[]> result;
  std::size_t size = static_cast<std::size_t>(out - first);
  for (bool ended = false; !ended;) {
    const auto read = static_cast<std::size_t>(p - text);
    const std::size_t step = read < kSteepGrowthUnits ? (kGrowth - 1) * read : read;
    std::unique_ptr<char[]> larger(new char[size + 4 * step + kEncodeSlack + 1]);
    std::memcpy(larger.get(), result ? result.get() : first, size);
    result = std::move(larger);
    out = result.get() + size;
    ended = EncodeTerminated(p, step, out);
    size = static_cast<std::size_t>(out - result.get());
  }
  if (size < kShrinkBytes)
    return NewArrayOf(result.get(), size);
  result[size] = '\0';
  return result.release();
}

std::size_t DecodeUtf8(unsigned char const* in, std::size_t size, wchar_t* out) {
  Utf8Decoding decoding{in, size, out};
  // The whole input is checked even past a decoded 0, since invalid bytes
  // anywhere void it.
  if (!DecodeBlocksAtLevel(decoding) || !DecodeTail(decoding))
    return kInvalidUtf8;
  return decoding.Length();
}

} // namespace zrn::detail
