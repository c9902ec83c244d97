// Splitting report text into lines, for tests of the text tables.
#ifndef ZRN_TESTS_SUPPORT_TEXTLINES_H
#define ZRN_TESTS_SUPPORT_TEXTLINES_H

#include <sstream>
#include <string>
#include <vector>

namespace zrn::test {

/// The lines of `text`, without their line feeds.
inline std::vector<std::wstring> Lines(std::wstring const& text) {
  std::vector<std::wstring> lines;
  std::wistringstream in(text);
  for (std::wstring line; std::getline(in, line);)
    lines.push_back(line);
  return lines;
}

} // namespace zrn::test

#endif
