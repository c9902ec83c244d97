// Number parsing and formatting for variant conversions and typed input:
// independent of the process's locale (the point is always a full stop), and
// never undefined for any input.
#ifndef ZRN_SRC_PROPERTY_NUMBERFORMAT_H
#define ZRN_SRC_PROPERTY_NUMBERFORMAT_H

#include <string>
#include <string_view>

namespace zrn::detail {

/// `value` with 8 significant digits in the `_gcvt` manner: fixed notation
/// for decimal exponents -1 to 7, else d.ddddddde+XXX; trailing zeros of the
/// fraction dropped but the point kept ("100.", "5.e-002"). Infinities and
/// NaN give "inf", "-inf" and "nan".
std::string FormatSignificant8(double value);

/// Leading white space, an optional sign and decimal digits, stopping at the
/// first other character; 0 without digits; saturated to the 64-bit range.
long long ParseInt64(std::string_view text);
/// The same for wide text (characters beyond ASCII end the number).
long long ParseInt64(std::wstring_view text);

/// Leading white space, then the longest prefix that is a decimal
/// floating-point number (or inf / nan); 0.0 without one. Out-of-range
/// values give +-HUGE_VAL or a signed zero.
double ParseDouble(std::string_view text);
/// The same for wide text.
double ParseDouble(std::wstring_view text);

/// ParseDouble, also storing in `length` how many characters of `text` the
/// number took, white space and sign included; 0 when there is no number.
double ReadDouble(std::string_view text, std::size_t& length);
/// The same for wide text.
double ReadDouble(std::wstring_view text, std::size_t& length);

/// `value` truncated toward zero; NaN and values outside the 64-bit range
/// give the most negative 64-bit value, as the processor's conversion does.
long long TruncateToInt64(double value);

} // namespace zrn::detail

#endif
