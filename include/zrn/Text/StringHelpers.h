// Helpers for narrow strings: formatting, trimming, splitting, wildcard
// matching, prefix tests and file-name splitting.
#ifndef ZRN_TEXT_STRINGHELPERS_H
#define ZRN_TEXT_STRINGHELPERS_H

#include <zrn/Export.h>

#include <cstdarg>
#include <string>
#include <vector>

/// Lets the compiler check the arguments of a printf-style function.
#if defined(__GNUC__) || defined(__clang__)
#define ZRN_PRINTF_FORMAT(formatIndex, firstArg)                                                   \
  __attribute__((format(printf, formatIndex, firstArg)))
#else
#define ZRN_PRINTF_FORMAT(formatIndex, firstArg)
#endif

namespace zrn {

/// The text that printf would print for `format` and `args`, of any length,
/// with numbers as in the C locale whatever the process's locale (a full stop
/// for the point, no digit grouping); other conversions, such as the charset
/// of `%ls`, follow the locale in force. Empty when the arguments cannot be formatted (a wide string argument that
/// the locale in force cannot represent, for instance).
ZRN_API std::string FFormatString(char const* format, va_list args) ZRN_PRINTF_FORMAT(1, 0);

/// The text that printf would print for `format` and the arguments that
/// follow, of any length.
ZRN_API std::string FFormatString(char const* format, ...) ZRN_PRINTF_FORMAT(1, 2);

/// True for space, tab, carriage return and line feed only (vertical tab and
/// form feed are not white space here).
ZRN_API bool IsWhiteSpace(int c);

/// `text` without its leading white space and, unless `leftOnly`, without its
/// trailing white space.
ZRN_API std::string Trim(std::string const& text, bool leftOnly);

/// Appends to `tokens` the pieces of `text` between any of the characters of
/// `delimiters`, each trimmed of white space on both sides; empty pieces are
/// left out when `skipEmpty`. `tokens` is not cleared first: the result is its
/// size afterwards. An empty `text`, or a delimiter at its end, gives an empty
/// piece; an empty `delimiters` makes the whole text one piece.
ZRN_API int Split(std::string const& text, std::vector<std::string>& tokens,
                  std::string const& delimiters, bool skipEmpty);

/// Whether `text` matches the wildcard `pattern`, where `*` stands for any run
/// of characters and every other character for itself (no escapes). Without
/// `caseSensitive` both are compared after tolower.
///
/// Matching backtracks fully: a `*` covers as many characters as a match
/// needs, so "aaa" matches "*aa" and "aaab" matches "*aab". The text must not
/// run out before the pattern does, though: a `*` at the end of the pattern
/// covers at least one character ("abc" matches "ab*", "ab" does not), and the
/// empty text matches only the empty pattern.
ZRN_API bool Match(std::string const& text, std::string const& pattern, bool caseSensitive);

/// Whether `text` begins with `prefix`, compared after tolower when
/// `caseInsensitive`. False for an empty prefix.
ZRN_API bool StartsWith(std::string const& text, std::string const& prefix, bool caseInsensitive);

/// Splits `path` at its last slash or backslash: `directory` gets everything
/// up to and including it with backslashes turned into slashes, `fileName`
/// the rest. A path without separators is all file name (as given) and an
/// empty directory.
ZRN_API void SplitFilename(std::string const& path, std::string& fileName, std::string& directory);

/// The text from the last '.' of `path` to its end, dot included; empty
/// without a dot. Separators are not considered: "a.b/c" gives ".b/c".
ZRN_API std::wstring ExtractFileExt(std::wstring const& path);

/// True when `pointer` is null or one of the fill patterns that debug heaps
/// and stacks leave in memory (0xCDCD..., 0xCCCC..., 0xFDFD..., 0xFEEEFEEE...,
/// 0xDDDD..., 0xABAB..., 0xFEFE... over all 64 bits).
ZRN_API bool IsNullPointer(void const* pointer);

} // namespace zrn

#endif // ZRN_TEXT_STRINGHELPERS_H
