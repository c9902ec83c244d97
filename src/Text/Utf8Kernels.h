// The vectorised parts of the UTF-8 encoder and decoder, one set per
// instruction set; Utf8.cpp chooses among them and does the rest.
#ifndef ZRN_SRC_TEXT_UTF8KERNELS_H
#define ZRN_SRC_TEXT_UTF8KERNELS_H

#include <cstddef>
#include <string_view>

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define ZRN_UTF8_X86_KERNELS 1
#endif

namespace zrn::detail {

constexpr std::size_t kNoZero = static_cast<std::size_t>(-1);

/// The units of an encoding block, and the bytes a block's stores may write
/// beyond the UTF-8 form of its units.
constexpr std::size_t kEncodeBlockUnits = 16;
constexpr std::size_t kEncodeSlack = 16;

/// One decoding of `size` bytes into `out`, which has room for `size` units.
/// A kernel decodes blocks from `read` on and leaves the rest, fewer than a
/// block plus three bytes, to the portable tail.
struct Utf8Decoding {
  unsigned char const* in;
  std::size_t size;
  wchar_t* out;
  std::size_t read = 0;
  std::size_t written = 0; // never ahead of `read`, so blocks stay in `out`
  std::size_t firstZero = kNoZero;

  /// A decoded 0 ends the text. Only an overlong form decodes to 0: the text
  /// has no NUL bytes.
  void NoteZero(std::size_t at) {
    if (firstZero == kNoZero)
      firstZero = at;
  }
  std::size_t Length() const { return firstZero == kNoZero ? written : firstZero; }
};

#if defined(ZRN_UTF8_X86_KERNELS)
/// Decode blocks; false when they found an invalid byte (the decoding is then
/// void, and where it stopped does not matter).
bool DecodeBlocksAvx2(Utf8Decoding& d);

/// Encode blocks of units from the start of `text`, writing only within the
/// UTF-8 form of the whole text; return how many units they encoded, with
/// `out` moved past their bytes.
std::size_t EncodeBlocksAvx2(std::wstring_view text, char*& out);

/// Encode whole blocks of units from `text`, which is aligned to a block's
/// bytes, up to `limit` units or the block that holds the text's terminator;
/// return how many units they encoded, with `out` moved past their bytes (and
/// up to kEncodeSlack bytes beyond them written).
std::size_t EncodeTerminatedBlocksAvx2(wchar_t const* text, std::size_t limit, char*& out);
#endif

} // namespace zrn::detail

#endif
