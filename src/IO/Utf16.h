// The archive's wide-string form: UTF-16LE code units.
#ifndef ZRN_SRC_IO_UTF16_H
#define ZRN_SRC_IO_UTF16_H

#include <cstddef>
#include <string>
#include <string_view>

namespace zrn::detail {

/// Replaces `out` with `text` as UTF-16LE bytes: code points above U+FFFF as
/// surrogate pairs, a lone surrogate as the single unit it is, and values
/// beyond U+10FFFF (which UTF-16 cannot hold) as U+FFFD.
void EncodeUtf16(std::wstring_view text, std::string& out);

/// Writes `text` as UTF-16LE bytes, as above, to `out`, which has room for
/// 4 bytes per character; returns the number of bytes written.
std::size_t EncodeUtf16(std::wstring_view text, char* out);

/// Replaces `out` with the UTF-16LE bytes of `units` (an even count; a last
/// odd byte is ignored), combining surrogate pairs and keeping lone
/// surrogates as they are. The text ends at the first NUL unit.
void DecodeUtf16(std::string_view units, std::wstring& out);

} // namespace zrn::detail

#endif
