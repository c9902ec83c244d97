// Wide text to UTF-8 and back: the library's one UTF-8 encoder and decoder,
// used by the conversions of GStdStringTrans and by every UTF-8 output (log
// file, debugger output, file names).
#ifndef ZRN_SRC_TEXT_UTF8_H
#define ZRN_SRC_TEXT_UTF8_H

#include <cstddef>
#include <string>
#include <string_view>

namespace zrn::detail {

/// The result of DecodeUtf8 for invalid input.
constexpr std::size_t kInvalidUtf8 = static_cast<std::size_t>(-1);

/// The size of the UTF-8 form of `text`, each unit encoded by itself.
std::size_t Utf8Size(std::wstring_view text);

/// Writes `text` in UTF-8 to `out`, each wchar_t unit encoded by itself (a
/// lone surrogate unit gives three bytes); units above U+1FFFFF, which four
/// bytes cannot hold, become U+FFFD. `out` has room for Utf8Size(text) bytes;
/// nothing beyond them is written. Returns the end of the output.
char* EncodeUtf8(std::wstring_view text, char* out);

/// Appends `text` to `out` in UTF-8, as EncodeUtf8.
void AppendUtf8(std::string& out, std::wstring_view text);

/// `text` in UTF-8.
inline std::string ToUtf8(std::wstring_view text) {
  std::string out;
  AppendUtf8(out, text);
  return out;
}

/// The terminated `text` in UTF-8 with a terminator, in a new[] array; the
/// text is read once, up to its terminator.
char* NewUtf8Array(wchar_t const* text);

/// Decodes `size` bytes of UTF-8 at `in` into `out`, which has room for
/// `size` units (never more units than bytes) and may be written anywhere in
/// that room. Returns the length of the text up to its first decoded 0, or
/// kInvalidUtf8 when any byte of the input is invalid: a continuation byte
/// where a character starts, a lead byte of 0xF8 or more, a sequence cut
/// short, an encoded surrogate or a value above U+10FFFF. Overlong forms
/// decode to their value.
std::size_t DecodeUtf8(unsigned char const* in, std::size_t size, wchar_t* out);

} // namespace zrn::detail

#endif
