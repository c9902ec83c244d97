// Narrow text in a locale's charset to wide text and back, through iconv:
// the platform layer's part of the text conversions.
#ifndef ZRN_SRC_PLATFORM_ICONV_H
#define ZRN_SRC_PLATFORM_ICONV_H

#include <cstddef>
#include <string>
#include <string_view>

namespace zrn::platform {

/// `text`, taken up to its first NUL, decoded from the charset of `locale`.
///
/// The charset of a locale name: "chs" (in any case) is code page 936;
/// "xx_YY.CHARSET@modifier" gives CHARSET, a number N standing for code page
/// N; a name that iconv knows as a charset is that charset; a name that the
/// runtime knows as a locale gives that locale's charset; any other name gives
/// the charset of the locale in force on the calling thread. No locale is
/// switched to find out.
///
/// Decoding stops at the first byte sequence that is invalid or cut short in
/// the charset; the result is the text decoded before it.
std::wstring DecodeNarrow(std::string_view text, std::string_view locale);

/// `text` encoded in the charset of `locale` (as for DecodeNarrow), in at
/// most `limit` bytes, up to the first NUL byte of the encoding (a NUL in
/// `text` gives one).
///
/// Encoding stops at the first character that the charset cannot represent,
/// or that would take the result past `limit`; the result is the text encoded
/// before it, whole characters only.
std::string EncodeWide(std::wstring_view text, std::string_view locale, std::size_t limit);

} // namespace zrn::platform

#endif
