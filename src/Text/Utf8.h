// Wide text to UTF-8, for the library's own outputs (log file, debugger
// output, file names).
#ifndef ZRN_SRC_TEXT_UTF8_H
#define ZRN_SRC_TEXT_UTF8_H

#include <string>
#include <string_view>

namespace zrn::detail {

/// Appends `text` to `out` in UTF-8, each wchar_t unit encoded by itself (a
/// lone surrogate unit gives three bytes). Units above U+1FFFFF, which four
/// bytes cannot hold, become U+FFFD.
void AppendUtf8(std::string& out, std::wstring_view text);

/// `text` in UTF-8.
inline std::string ToUtf8(std::wstring_view text) {
  std::string out;
  AppendUtf8(out, text);
  return out;
}

} // namespace zrn::detail

#endif
