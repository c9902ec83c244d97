#include "Property/NumberFormat.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>

namespace zrn::detail {

namespace {

constexpr int kSignificantDigits = 8;

bool IsSpace(unsigned c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// The ASCII characters of `text` up to the first one beyond ASCII.
std::string Narrowed(std::wstring_view text) {
  std::string out;
  out.reserve(text.size());
  for (wchar_t c : text) {
    if (c <= 0 || c > 0x7F)
      break;
    out.push_back(static_cast<char>(c));
  }
  return out;
}

std::string_view SkipSpace(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size() && IsSpace(static_cast<unsigned char>(text[i])))
    ++i;
  return text.substr(i);
}

} // namespace

std::string FormatSignificant8(double value) {
  if (std::isnan(value))
    return "nan";
  if (std::isinf(value))
    return value < 0 ? "-inf" : "inf";
  // d.ddddddde+XX: the digits, already rounded to 8 significant places.
  char scientific[32];
  const auto [end, ec] = std::to_chars(scientific, scientific + sizeof scientific, value,
                                       std::chars_format::scientific, kSignificantDigits - 1);
  std::string_view text(scientific, static_cast<std::size_t>(end - scientific));
  std::string out;
  if (text.front() == '-') {
    out.push_back('-');
    text.remove_prefix(1);
  }
  std::string digits;
  digits.push_back(text[0]);
  digits.append(text.substr(2, kSignificantDigits - 1));
  const std::size_t ePos = text.find('e');
  int exponent = 0;
  std::from_chars(text.data() + ePos + 1 + (text[ePos + 1] == '+'), text.data() + text.size(),
                  exponent);
  if (value == 0)
    exponent = 0;

  if (exponent >= -1 && exponent <= 7) {
    if (exponent == -1)
      out += "0.";
    out += digits.substr(0, static_cast<std::size_t>(std::max(exponent + 1, 0)));
    if (exponent >= 0)
      out.push_back('.');
    std::string fraction = digits.substr(static_cast<std::size_t>(std::max(exponent + 1, 0)));
    fraction.erase(fraction.find_last_not_of('0') + 1);
    return out + fraction;
  }
  std::string fraction = digits.substr(1);
  fraction.erase(fraction.find_last_not_of('0') + 1);
  char exponentText[16];
  std::snprintf(exponentText, sizeof exponentText, "e%c%03d", exponent < 0 ? '-' : '+',
                std::abs(exponent));
  return out + digits[0] + "." + fraction + exponentText;
}

long long ParseInt64(std::string_view text) {
  text = SkipSpace(text);
  bool negative = false;
  if (!text.empty() && (text[0] == '+' || text[0] == '-')) {
    negative = text[0] == '-';
    text.remove_prefix(1);
  }
  // Accumulated as a negative number, which has room for the most negative.
  constexpr long long kMin = std::numeric_limits<long long>::min();
  long long value = 0;
  bool overflow = false;
  for (char c : text) {
    if (c < '0' || c > '9')
      break;
    const int digit = c - '0';
    if (value < (kMin + digit) / 10)
      overflow = true;
    else
      value = value * 10 - digit;
  }
  if (overflow)
    return negative ? kMin : std::numeric_limits<long long>::max();
  if (negative)
    return value;
  return value == kMin ? std::numeric_limits<long long>::max() : -value;
}

long long ParseInt64(std::wstring_view text) { return ParseInt64(Narrowed(text)); }

double ReadDouble(std::string_view text, std::size_t& length) {
  length = 0;
  const std::string_view number = SkipSpace(text);
  std::string_view rest = number;
  bool negative = false;
  if (!rest.empty() && (rest[0] == '+' || rest[0] == '-')) {
    negative = rest[0] == '-';
    rest.remove_prefix(1);
  }
  if (!rest.empty() && (rest[0] == '+' || rest[0] == '-'))
    return 0.0; // a second sign: no number
  double value = 0.0;
  const auto [end, ec] = std::from_chars(rest.data(), rest.data() + rest.size(), value);
  if (ec == std::errc::invalid_argument)
    return 0.0;
  if (ec == std::errc::result_out_of_range) {
    // Too large or too small: which one shows in the exponent, or (without
    // one) in whether any digit before the point is not zero.
    const std::string_view digits(rest.data(), static_cast<std::size_t>(end - rest.data()));
    const std::size_t e = digits.find_first_of("eE");
    const bool tiny =
        e != std::string_view::npos
            ? digits.substr(e + 1).starts_with('-')
            : digits.substr(0, digits.find('.')).find_first_not_of('0') == std::string_view::npos;
    value = tiny ? 0.0 : HUGE_VAL;
  }
  length = static_cast<std::size_t>(end - text.data());
  return negative ? -value : value;
}

double ReadDouble(std::wstring_view text, std::size_t& length) {
  // The narrowed text is a prefix of the wide one, character for character.
  return ReadDouble(Narrowed(text), length);
}

double ParseDouble(std::string_view text) {
  std::size_t length = 0;
  return ReadDouble(text, length);
}

double ParseDouble(std::wstring_view text) {
  std::size_t length = 0;
  return ReadDouble(text, length);
}

long long TruncateToInt64(double value) {
  // -2^63 and 2^63 are exact doubles; no double lies between -2^63 - 1 and
  // -2^63, so the range check needs no rounding care. NaN fails it too.
  constexpr double kLimit = 9223372036854775808.0;
  if (value >= -kLimit && value < kLimit)
    return static_cast<long long>(value);
  return std::numeric_limits<long long>::min();
}

} // namespace zrn::detail
