#include <zrn/Text/InputParser.h>

#include "Property/NumberFormat.h"

#include <array>
#include <cmath>
#include <memory>
#include <string_view>

namespace zrn {

namespace {

constexpr double kLargestCoordinate = 1e100;

wchar_t ToHalfWidth(wchar_t c) {
  if (c == L'\x3000')
    return L' ';
  if (c >= L'\xFF01' && c <= L'\xFF5E')
    return static_cast<wchar_t>(c - 0xFEE0);
  return c;
}

// Reads one field: empty is 0; otherwise a number with nothing after it,
// within range. The number is read as the C locale would, whatever the
// process's locale: a comma could never be its point anyway, since commas
// separate the fields.
bool ReadField(std::wstring_view field, double& value) {
  if (field.empty()) {
    value = 0.0;
    return true;
  }
  std::size_t length = 0;
  value = detail::ReadDouble(field, length);
  if (length == 0 || length != field.size())
    return false;
  return std::fabs(value) <= kLargestCoordinate; // also refuses NaN
}

} // namespace

int CInputParser::ConvertToDBC(std::wstring const& text, wchar_t** out) {
  if (out == nullptr)
    return 1;
  const std::wstring_view input(text.c_str());
  auto* converted = new wchar_t[2 * input.size() + 1]();
  for (std::size_t i = 0; i < input.size(); ++i)
    converted[i] = ToHalfWidth(input[i]);
  *out = converted;
  return 1;
}

int CInputParser::explainXYZ(std::wstring const& text, double* x, double* y, double* z) {
  if (text.empty() || x == nullptr || y == nullptr || z == nullptr)
    return 0;
  wchar_t* converted = nullptr;
  ConvertToDBC(text, &converted);
  const std::unique_ptr<wchar_t[]> owner(converted);
  std::wstring_view rest(converted);
  std::array<double, 3> values = {0.0, 0.0, 0.0};
  for (double& value : values) {
    const std::size_t comma = rest.find(L',');
    if (!ReadField(rest.substr(0, comma), value))
      return 0;
    if (comma == std::wstring_view::npos)
      break; // missing fields stay 0
    rest.remove_prefix(comma + 1);
  }
  *x = values[0];
  *y = values[1];
  *z = values[2];
  return 1;
}

} // namespace zrn
