#include "IO/Utf16.h"

#include <bit>
#include <cstring>

namespace zrn::detail {

namespace {

void PutUnit(char*& p, char32_t unit) {
  *p++ = static_cast<char>(unit & 0xFF);
  *p++ = static_cast<char>(unit >> 8);
}

} // namespace

void EncodeUtf16(std::wstring_view text, std::string& out) {
  out.resize(text.size() * 4);
  out.resize(EncodeUtf16(text, out.data()));
}

std::size_t EncodeUtf16(std::wstring_view text, char* const out) {
  if constexpr (std::endian::native == std::endian::little) {
    // Text without characters beyond U+FFFF, the usual case, is one unit per
    // character: a narrowing copy that the compiler vectorises.
    char32_t all = 0;
    for (wchar_t unit : text)
      all |= static_cast<char32_t>(unit);
    if (all < 0x10000) {
      for (std::size_t i = 0; i < text.size(); ++i) {
        const auto unit = static_cast<char16_t>(text[i]);
        std::memcpy(out + 2 * i, &unit, sizeof unit);
      }
      return 2 * text.size();
    }
  }
  char* p = out;
  for (wchar_t unit : text) {
    auto c = static_cast<char32_t>(unit);
    if (c > 0x10FFFF)
      c = 0xFFFD;
    if (c >= 0x10000) {
      c -= 0x10000;
      PutUnit(p, 0xD800 + (c >> 10));
      PutUnit(p, 0xDC00 + (c & 0x3FF));
    } else {
      PutUnit(p, c);
    }
  }
  return static_cast<std::size_t>(p - out);
}

void DecodeUtf16(std::string_view units, std::wstring& out) {
  const std::size_t count = units.size() / 2;
  auto const* bytes = reinterpret_cast<unsigned char const*>(units.data());
  auto unitAt = [bytes](std::size_t i) -> char32_t {
    return bytes[2 * i] | (bytes[2 * i + 1] << 8);
  };
  out.resize(count);
  wchar_t* p = out.data();
  for (std::size_t i = 0; i < count; ++i) {
    char32_t c = unitAt(i);
    if (c == 0)
      break;
    if (c >= 0xD800 && c < 0xDC00 && i + 1 < count) {
      const char32_t low = unitAt(i + 1);
      if (low >= 0xDC00 && low < 0xE000) {
        c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
        ++i;
      }
    }
    *p++ = static_cast<wchar_t>(c);
  }
  out.resize(static_cast<std::size_t>(p - out.data()));
}

} // namespace zrn::detail
