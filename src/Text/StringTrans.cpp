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

std::string ToDefaultCharset(std::wstring_view text) {
  return platform::EncodeWide(text, kDefaultLocale, 2 * text.size());
}

// UTF-8 `text` decoded, with its length; a null array for invalid input.
struct DecodedUtf8 {
  std::unique_ptr<wchar_t[]> units;
  std::size_t length = 0;
  std::size_t bytes = 0;
};

DecodedUtf8 DecodeUtf8Array(char const* text) {
  DecodedUtf8 decoded;
  decoded.bytes = std::strlen(text);
  // Decoded straight into the result: never more units than bytes.
  decoded.units.reset(new wchar_t[decoded.bytes + 1]);
  decoded.length = detail::DecodeUtf8(reinterpret_cast<unsigned char const*>(text), decoded.bytes,
                                      decoded.units.get());
  if (decoded.length == detail::kInvalidUtf8) {
    decoded.units.reset();
    decoded.length = 0;
  } else {
    decoded.units[decoded.length] = L'\0';
  }
  return decoded;
}

template <class Char> Char* NewArray(std::basic_string_view<Char> text) {
  auto* array = new Char[text.size() + 1];
  std::memcpy(array, text.data(), text.size() * sizeof(Char));
  array[text.size()] = Char();
  return array;
}

} // namespace

GStdStringTrans::~GStdStringTrans() = default;

std::string GStdStringTrans::WstringToString(std::wstring const& text) {
  return ToDefaultCharset(text);
}

std::string GStdStringTrans::WstringToString(std::wstring const& text, std::string const& locale) {
  return platform::EncodeWide(text, locale, 2 * text.size());
}

std::string GStdStringTrans::WstringToString(wchar_t const* text) { return ToDefaultCharset(text); }

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
  const std::wstring_view view(text);
  return NewArray<char>(platform::EncodeWide(view, locale, 2 * view.size()));
}

wchar_t* GStdStringTrans::Utf8ToUnicode(char const* text) {
  DecodedUtf8 decoded = DecodeUtf8Array(text);
  if (!decoded.units)
    return new wchar_t[1]();
  if (decoded.bytes > kShrinkThreshold && decoded.length < decoded.bytes / 2)
    return NewArray<wchar_t>({decoded.units.get(), decoded.length});
  return decoded.units.release();
}

char* GStdStringTrans::UnicodeToUtf8(wchar_t const* text) { return detail::NewUtf8Array(text); }

std::string GStdStringTrans::Utf8ToAnsi(char const* text) {
  const DecodedUtf8 decoded = DecodeUtf8Array(text);
  return ToDefaultCharset({decoded.units.get(), decoded.length});
}

} // namespace zrn
