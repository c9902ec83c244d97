#include "Text/Utf8.h"

namespace zrn::detail {

namespace {

// Longest encoding of one unit.
constexpr std::size_t kMaxUnitBytes = 4;

char* EncodeUnit(char32_t c, char* p) {
  if (c > 0x1FFFFF)
    c = 0xFFFD;
  if (c < 0x80) {
    *p++ = static_cast<char>(c);
  } else if (c < 0x800) {
    *p++ = static_cast<char>(0xC0 | (c >> 6));
    *p++ = static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    *p++ = static_cast<char>(0xE0 | (c >> 12));
    *p++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    *p++ = static_cast<char>(0x80 | (c & 0x3F));
  } else {
    *p++ = static_cast<char>(0xF0 | (c >> 18));
    *p++ = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    *p++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    *p++ = static_cast<char>(0x80 | (c & 0x3F));
  }
  return p;
}

} // namespace

void AppendUtf8(std::string& out, std::wstring_view text) {
  const std::size_t start = out.size();
  // Reserve for the worst case once, then trim: one pass, no reallocation.
  out.resize(start + text.size() * kMaxUnitBytes);
  char* const begin = out.data() + start;
  char* p = begin;
  for (wchar_t unit : text) {
    const auto c = static_cast<char32_t>(unit);
    if (c < 0x80)
      *p++ = static_cast<char>(c);
    else
      p = EncodeUnit(c, p);
  }
  out.resize(start + static_cast<std::size_t>(p - begin));
}

} // namespace zrn::detail
