#include "System/TextCells.h"

#include <cstdio>

namespace zrn::detail {

std::wstring RightCell(std::wstring_view text, std::size_t width) {
  if (text.size() >= width)
    return std::wstring(text.substr(0, width));
  return std::wstring(width - text.size(), L' ') + std::wstring(text);
}

std::wstring CentredCell(std::wstring_view text, std::size_t width, wchar_t fill) {
  if (text.size() >= width)
    return std::wstring(text);
  const std::size_t room = width - text.size();
  return std::wstring(room / 2, fill) + std::wstring(text) + std::wstring(room - room / 2, fill);
}

std::wstring TwoDecimals(double value) {
  wchar_t buffer[400]; // holds any double in %f with six decimals
  const int n = std::swprintf(buffer, sizeof(buffer) / sizeof(buffer[0]), L"%.6f", value);
  if (n < 0)
    return {};
  std::wstring text(buffer, static_cast<std::size_t>(n));
  const std::size_t point = text.find(L'.');
  if (point != std::wstring::npos && text.size() > point + 3)
    text.resize(point + 3);
  return text;
}

} // namespace zrn::detail
