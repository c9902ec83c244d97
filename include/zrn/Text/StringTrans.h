// Conversions between wide text, narrow text in a locale's charset, and UTF-8.
#ifndef ZRN_TEXT_STRINGTRANS_H
#define ZRN_TEXT_STRINGTRANS_H

#include <zrn/Export.h>

#include <string>

namespace zrn {

/// Text conversions, all static; an instance holds nothing.
///
/// Wide text holds one code point per wchar_t. Narrow text is in the charset
/// of a locale name, by default "chs" (code page 936). The charset of a name:
/// "chs" in any case is code page 936; "xx_YY.CHARSET" gives CHARSET (".936"
/// gives code page 936); a charset name that iconv knows is used as is; any
/// other locale name that the system knows gives that locale's charset; an
/// unknown name gives the charset of the locale in force on the calling
/// thread. Conversions never switch the caller's locale and are thread-safe.
///
/// Narrow and wide texts are taken up to their first NUL. A narrow<->wide
/// conversion stops, silently, at the first character it cannot convert (a
/// byte sequence invalid in the charset, a character the charset cannot
/// represent): the result is the text converted before it. Wide to narrow
/// yields at most 2 x n bytes for a wide string of n characters, whole
/// characters only; only charsets with longer sequences than code page 936
/// can reach that bound.
///
/// Raw arrays are allocated with new[] and owned by the caller, who releases
/// them with delete[]. Pointer arguments must be valid NUL-terminated texts.
class ZRN_API GStdStringTrans {
public:
  GStdStringTrans() = default;
  GStdStringTrans(GStdStringTrans const&) = default;
  GStdStringTrans& operator=(GStdStringTrans const&) = default;
  virtual ~GStdStringTrans();

  /// `text` in code page 936.
  static std::string WstringToString(std::wstring const& text);
  /// `text` in the charset of the locale name `locale`.
  static std::string WstringToString(std::wstring const& text, std::string const& locale);
  /// `text` in code page 936.
  static std::string WstringToString(wchar_t const* text);

  /// `text`, in code page 936, as wide text.
  static std::wstring StringToWString(std::string const& text);
  /// `text`, in code page 936, as wide text.
  static std::wstring StringToWString(char const* text);

  /// StringToWString(text) in a new array.
  static wchar_t* AnsiToUnicode(char const* text);
  /// WstringToString(text) in a new array.
  static char* UnicodeToAnsi(wchar_t const* text);
  /// WstringToString(text, locale) in a new array.
  static char* UnicodeToAnsi(wchar_t const* text, std::string const& locale);

  /// UTF-8 `text` decoded in a new array, one wchar_t per code point.
  ///
  /// Any invalid input gives the empty text (an array holding only the
  /// terminator): a continuation byte (0x80-0xBF) where a character should
  /// start, a lead byte of 0xF8 or more, a sequence cut short, an encoded
  /// surrogate (U+D800-U+DFFF) or a value above U+10FFFF. Overlong forms are
  /// accepted and decode to their value; a decoded 0 ends the text.
  static wchar_t* Utf8ToUnicode(char const* text);

  /// `text` in UTF-8 in a new array, each unit encoded by itself: surrogate
  /// units are not paired, each gives three bytes (which Utf8ToUnicode then
  /// refuses). Units above U+1FFFFF, which four bytes cannot hold, become
  /// U+FFFD.
  static char* UnicodeToUtf8(wchar_t const* text);

  /// UTF-8 `text` in code page 936: Utf8ToUnicode, then WstringToString. Empty
  /// for invalid UTF-8.
  static std::string Utf8ToAnsi(char const* text);
};

} // namespace zrn

#endif // ZRN_TEXT_STRINGTRANS_H
