// The variant's conversions to every scalar type, colour and text: an
// integer path, a floating path and a text path.
#include <zrn/Property/Variant.h>
#include <zrn/Text/StringTrans.h>

#include "Property/NumberFormat.h"
#include "Property/PlainValue.h"

#include <charconv>
#include <type_traits>

namespace zrn {

namespace {

// The owned object of type `type` held by `data`, or null: database and
// counted references of that type are not objects the variant may read.
template <class T> T const* HeldObject(VariantStru const& data, eGBMDataType type) {
  if (data.m_eType != type || !data.m_bObject || data.m_bRefPtr)
    return nullptr;
  return static_cast<T const*>(data.m_value.pVal);
}

// A held string or wide string as a number read by `parse`, or a held colour
// as its integer; false (and `out` untouched) for anything else.
template <class T, class Parse> bool ObjectNumber(VariantStru const& data, Parse parse, T& out) {
  if (auto const* text = HeldObject<std::string>(data, GBM_STRING))
    out = parse(*text);
  else if (auto const* wide = HeldObject<std::wstring>(data, GBM_WSTRING))
    out = parse(*wide);
  else if (auto const* color = HeldObject<unsigned int>(data, GBM_COLOR))
    out = static_cast<T>(*color);
  else
    return false;
  return true;
}

void SetOk(bool* ok, bool value) {
  if (ok)
    *ok = value;
}

} // namespace

long long CVariant::GetNumberInt64(CVariant const& src, bool& ok) {
  ok = true;
  return detail::VisitValue<detail::ObjectIds::Other>(
      src.m_data,
      [](auto value) -> long long {
        if constexpr (std::is_floating_point_v<decltype(value)>)
          return detail::TruncateToInt64(value);
        else
          return static_cast<long long>(value); // unsigned 64-bit values wrap
      },
      [&]() -> long long {
        long long n = 0;
        ok = ObjectNumber(
            src.m_data, [](auto const& text) { return detail::ParseInt64(text); }, n);
        return n;
      });
}

double CVariant::GetNumberDouble(CVariant const& src, bool& ok) {
  ok = true;
  return detail::VisitValue<detail::ObjectIds::Other>(
      src.m_data, [](auto value) { return static_cast<double>(value); },
      [&]() -> double {
        double d = 0.0;
        ok = ObjectNumber(
            src.m_data, [](auto const& text) { return detail::ParseDouble(text); }, d);
        return d;
      });
}

bool CVariant::ConvertVariantToString(CVariant const& src, std::string& out) {
  VariantStru const& data = src.m_data;
  if (auto const* text = HeldObject<std::string>(data, GBM_STRING)) {
    out.assign(text->c_str()); // up to the first NUL
    return true;
  }
  if (auto const* text = HeldObject<std::wstring>(data, GBM_WSTRING)) {
    out = GStdStringTrans::WstringToString(*text);
    return true;
  }
  if (data.m_eType == GBM_DOUBLE || data.m_eType == GBM_FLOAT) {
    bool ok = false;
    out = detail::FormatSignificant8(GetNumberDouble(src, ok));
    return true;
  }
  bool ok = false;
  const long long n = GetNumberInt64(src, ok);
  if (!ok)
    return false;
  char digits[24];
  const auto [end, ec] = std::to_chars(digits, digits + sizeof digits, n);
  out.assign(digits, end);
  return true;
}

template <class T>
static T ToInteger(CVariant const& variant, bool* ok, long long (*number)(CVariant const&, bool&)) {
  bool good = false;
  const long long n = number(variant, good);
  SetOk(ok, good);
  return good ? static_cast<T>(n) : T();
}

bool CVariant::toBool(bool* ok) const {
  return ToInteger<long long>(*this, ok, GetNumberInt64) != 0;
}
char CVariant::toChar(bool* ok) const { return ToInteger<char>(*this, ok, GetNumberInt64); }
unsigned char CVariant::toUChar(bool* ok) const {
  return ToInteger<unsigned char>(*this, ok, GetNumberInt64);
}
short CVariant::toShort(bool* ok) const { return ToInteger<short>(*this, ok, GetNumberInt64); }
unsigned short CVariant::toUShort(bool* ok) const {
  return ToInteger<unsigned short>(*this, ok, GetNumberInt64);
}
int CVariant::toInt(bool* ok) const { return ToInteger<int>(*this, ok, GetNumberInt64); }
unsigned int CVariant::toUInt(bool* ok) const {
  return ToInteger<unsigned int>(*this, ok, GetNumberInt64);
}
long long CVariant::toInt64(bool* ok) const {
  return ToInteger<long long>(*this, ok, GetNumberInt64);
}
unsigned long long CVariant::toUInt64(bool* ok) const {
  return ToInteger<unsigned long long>(*this, ok, GetNumberInt64);
}

double CVariant::toDouble(bool* ok) const {
  bool good = false;
  const double d = GetNumberDouble(*this, good);
  SetOk(ok, good);
  return good ? d : 0.0;
}

float CVariant::toFloat(bool* ok) const { return static_cast<float>(toDouble(ok)); }

CColor CVariant::toColor(bool* ok) const {
  CColor color;
  if (auto const* integer = HeldObject<unsigned int>(m_data, GBM_COLOR)) {
    SetOk(ok, true);
    return color.FromInteger(*integer);
  }
  bool good = false;
  const long long n = GetNumberInt64(*this, good);
  SetOk(ok, good);
  if (good)
    color.FromInteger(static_cast<unsigned int>(n));
  return color;
}

std::string CVariant::toString(bool* ok) const {
  if (auto const* text = HeldObject<std::string>(m_data, GBM_STRING)) {
    SetOk(ok, true);
    return *text;
  }
  std::string out;
  const bool good = ConvertVariantToString(*this, out);
  SetOk(ok, good);
  return good ? out : std::string();
}

std::wstring CVariant::toWString(bool* ok) const {
  if (auto const* text = HeldObject<std::wstring>(m_data, GBM_WSTRING)) {
    SetOk(ok, true);
    return *text;
  }
  std::string narrow;
  const bool good = ConvertVariantToString(*this, narrow);
  SetOk(ok, good);
  return good ? GStdStringTrans::StringToWString(narrow) : std::wstring();
}

} // namespace zrn
