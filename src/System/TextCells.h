// The cell style of the diagnostic text tables: right-aligned cells padded
// with blanks and cut to their width, centred cells with the smaller half of
// the fill before the text, and fractions cut after the second decimal.
#ifndef ZRN_SRC_SYSTEM_TEXTCELLS_H
#define ZRN_SRC_SYSTEM_TEXTCELLS_H

#include <cstddef>
#include <string>
#include <string_view>

namespace zrn::detail {

/// `text` right-aligned in `width` blanks; a longer text keeps its first
/// `width` characters.
std::wstring RightCell(std::wstring_view text, std::size_t width);

/// `text` centred in `width` characters of `fill`: floor(d/2) fill characters
/// before it and the rest after, where d = width - length.
std::wstring CentredCell(std::wstring_view text, std::size_t width, wchar_t fill);

/// `value` in fixed notation with six decimals, cut (not rounded) after the
/// second.
std::wstring TwoDecimals(double value);

} // namespace zrn::detail

#endif
