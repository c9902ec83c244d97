// Names that callers give for tables and columns, made safe for SQL text.
#ifndef ZRN_SRC_STORE_SQLNAMES_H
#define ZRN_SRC_STORE_SQLNAMES_H

#include <algorithm>
#include <cctype>
#include <string>
#include <string_view>

namespace zrn::detail {

/// `name` as a quoted identifier: inside double quotes, with each double
/// quote doubled, so that no name can end the identifier early.
inline std::string QuotedName(std::string_view name) {
  std::string quoted = "\"";
  for (char c : name) {
    quoted += c;
    if (c == '"')
      quoted += '"';
  }
  return quoted + '"';
}

/// True when `a` and `b` differ at most in the case of ASCII letters.
inline bool SameNameNoCase(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
    return std::tolower(static_cast<unsigned char>(x)) ==
           std::tolower(static_cast<unsigned char>(y));
  });
}

} // namespace zrn::detail

#endif // ZRN_SRC_STORE_SQLNAMES_H
