#include <zrn/Text/StringTrans.h>

#include "Platform/Iconv.h"
#include "Text/Utf8.h"

#include <cstring>
#include <memory>
#include <string_view>

namespace zrn {

namespace {

constexpr char kDefaultLocale[] = "chs";
// Below this many units a roomy result array is not worth a second copy.
constexpr std::size_t kShrinkThreshold = 4096;

template <class Char> Char* NewArray(std::basic_string_view<Char> text) {
  auto* array = new Char[text.size() + 1];
  std::memcpy(array, text.data(), text.size() * sizeof(Char));
  array[text.size()] = Char();
  return array;
}

} // namespace

GStdStringTrans::~GStdStringTrans() = default;

std::string GStdStringTrans::WstringToString(std::wstring const& text) {
  return platform::EncodeWide(text, kDefaultLocale, 2 * text.size());
}

std::string GStdStringTrans::WstringToString(std::wstring const& text, std::string const& locale) {
  return platform::EncodeWide(text, locale, 2 * text.size());
}

std::string GStdStringTrans::WstringToString(wchar_t const* text) {
  return WstringToString(std::wstring(text));
}

std::wstring GStdStringTrans::StringToWString(std::string const& text) {
  return platform::DecodeNarrow(text, kDefaultLocale);
}

std::wstring GStdStringTrans::StringToWString(char const* text) {
  return platform::DecodeNarrow(text, kDefaultLocale);
}

wchar_t* GStdStringTrans::AnsiToUnicode(char const* text) {
  return NewArray<wchar_t>(StringToWString(text));
}

char* GStdStringTrans::UnicodeToAnsi(wchar_t const* text) {
  return NewArray<char>(WstringToString(text));
}

char* GStdStringTrans::UnicodeToAnsi(wchar_t const* text, std::string const& locale) {
  return NewArray<char>(WstringToString(std::wstring(text), locale));
}

wchar_t* GStdStringTrans::Utf8ToUnicode(char const* text) {
  const std::size_t size = std::strlen(text);
  // Decoded straight into the result: never more units than bytes.
  std::unique_ptr<wchar_t[]> units(new wchar_t[size + 1]);
  const std::size_t length =
      detail::DecodeUtf8(reinterpret_cast<unsigned char const*>(text), size, units.get());
  if (length == detail::kInvalidUtf8)
    return new wchar_t[1]();
  if (size > kShrinkThreshold && length < size / 2)
    return NewArray<wchar_t>({units.get(), length});
  units[length] = L'\0';
  return units.release();
}

char* GStdStringTrans::UnicodeToUtf8(wchar_t const* text) { return detail::NewUtf8Array(text); }

std::string GStdStringTrans::Utf8ToAnsi(char const* text) {
  const std::unique_ptr<wchar_t[]> wide(Utf8ToUnicode(text));
  return WstringToString(wide.get());
}

} // namespace zrn
