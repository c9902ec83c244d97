// Feeds arbitrary bytes to the text conversions, base64 decoding, the
// coordinate parser and wildcard matching, and checks what must hold for any
// input: conversions that succeed convert back, decoded base64 encodes and
// decodes to the same bytes, a failed parse leaves its outputs alone, and
// matching agrees with a plain dynamic-programming matcher. UTF-8 both ways
// must agree with a plain character-at-a-time converter; run with ZRN_SIMD
// set to fuzz one vector path in particular.
#include <zrn/Text/Base64.h>
#include <zrn/Text/InputParser.h>
#include <zrn/Text/StringHelpers.h>
#include <zrn/Text/StringTrans.h>

#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

using zrn::GStdStringTrans;

void Check(bool condition) {
  if (!condition)
    std::abort();
}

void FuzzUtf8(std::string const& bytes) {
  const std::unique_ptr<wchar_t[]> wide(GStdStringTrans::Utf8ToUnicode(bytes.c_str()));
  // Decoded text holds no surrogates and nothing above U+10FFFF, so it goes
  // through UTF-8 and back unchanged.
  const std::unique_ptr<char[]> utf8(GStdStringTrans::UnicodeToUtf8(wide.get()));
  const std::unique_ptr<wchar_t[]> again(GStdStringTrans::Utf8ToUnicode(utf8.get()));
  Check(std::wstring(wide.get()) == again.get());
  Check(GStdStringTrans::Utf8ToAnsi(bytes.c_str()) == GStdStringTrans::WstringToString(wide.get()));
}

// A character at a time, plainly: the code points of `text`, or nothing
// when it is not valid UTF-8.
std::optional<std::wstring> ReferenceDecode(std::string const& text) {
  std::wstring units;
  for (std::size_t i = 0; i < text.size();) {
    const auto lead = static_cast<unsigned char>(text[i]);
    if ((lead >= 0x80 && lead < 0xC0) || lead >= 0xF8)
      return std::nullopt;
    const std::size_t more = lead < 0x80 ? 0 : lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
    if (i + more >= text.size())
      return std::nullopt;
    char32_t value = more == 0 ? lead : lead & (0x7F >> (more + 1));
    for (std::size_t k = 1; k <= more; ++k) {
      const auto next = static_cast<unsigned char>(text[i + k]);
      if ((next & 0xC0) != 0x80)
        return std::nullopt;
      value = (value << 6) | (next & 0x3F);
    }
    if ((value >= 0xD800 && value <= 0xDFFF) || value > 0x10FFFF)
      return std::nullopt;
    units += static_cast<wchar_t>(value);
    i += more + 1;
  }
  return units;
}

// Each unit by itself; units beyond U+1FFFFF as U+FFFD.
std::string ReferenceEncode(std::wstring const& text) {
  std::string bytes;
  for (wchar_t unit : text) {
    auto c = static_cast<char32_t>(unit);
    if (c > 0x1FFFFF)
      c = 0xFFFD;
    const int more = c < 0x80 ? 0 : c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
    static constexpr unsigned char kMarkers[] = {0x00, 0xC0, 0xE0, 0xF0};
    bytes += static_cast<char>(kMarkers[more] | (c >> (6 * more)));
    for (int k = more - 1; k >= 0; --k)
      bytes += static_cast<char>(0x80 | ((c >> (6 * k)) & 0x3F));
  }
  return bytes;
}

// The vector paths against the plain ones, both ways: the bytes as UTF-8,
// and three bytes at a time as wide units (of any value but 0).
void FuzzUtf8Exactly(std::string const& bytes) {
  const std::string text(bytes.c_str());
  const std::optional<std::wstring> expected = ReferenceDecode(text);
  const std::unique_ptr<wchar_t[]> wide(GStdStringTrans::Utf8ToUnicode(text.c_str()));
  Check(wide.get() == (expected ? expected->substr(0, expected->find(L'\0')) : std::wstring()));

  std::wstring units;
  for (std::size_t i = 0; i + 3 <= bytes.size(); i += 3) {
    const auto unit = static_cast<unsigned char>(bytes[i]) |
                      (static_cast<unsigned char>(bytes[i + 1]) << 8) |
                      (static_cast<unsigned char>(bytes[i + 2]) << 16);
    units += static_cast<wchar_t>(unit == 0 ? 1 : unit);
  }
  const std::unique_ptr<char[]> utf8(GStdStringTrans::UnicodeToUtf8(units.c_str()));
  Check(utf8.get() == ReferenceEncode(units));
}

void FuzzCodePage(std::string const& bytes) {
  const std::wstring wide = GStdStringTrans::StringToWString(bytes);
  Check(wide.size() <= bytes.size());
  const std::string narrow = GStdStringTrans::WstringToString(wide);
  Check(GStdStringTrans::StringToWString(narrow) == wide);
}

void FuzzBase64(std::string const& bytes) {
  const std::string decoded = base64_decode(bytes);
  const std::string encoded = base64_encode(reinterpret_cast<unsigned char const*>(decoded.data()),
                                            static_cast<unsigned int>(decoded.size()));
  Check(base64_decode(encoded) == decoded);
  Check(encoded.size() % 4 == 0);
}

// Bytes as wide text, the high ones as full-width forms and ideographic
// spaces so that ConvertToDBC has work.
std::wstring Widened(std::string const& bytes) {
  std::wstring text;
  for (unsigned char b : bytes)
    text += b < 0x80 ? static_cast<wchar_t>(b)
                     : (b == 0x80 ? L'\x3000' : static_cast<wchar_t>(0xFF00 + (b - 0x80)));
  return text;
}

void FuzzCoordinates(std::string const& bytes) {
  constexpr double kUntouched = -12345.0;
  double xyz[3] = {kUntouched, kUntouched, kUntouched};
  if (zrn::CInputParser::explainXYZ(Widened(bytes), &xyz[0], &xyz[1], &xyz[2]) == 1) {
    for (double value : xyz)
      Check(std::fabs(value) <= 1e100);
  } else {
    for (double value : xyz)
      Check(value == kUntouched);
  }
}

// '*' covers any run of characters, but the text must not run out before the
// pattern: matched[t][p] tells whether text[t..] matches pattern[p..].
bool ReferenceMatch(std::string const& text, std::string const& pattern) {
  const std::size_t n = text.size();
  const std::size_t m = pattern.size();
  std::vector<std::vector<char>> matched(n + 1, std::vector<char>(m + 1, 0));
  matched[n][m] = 1;
  for (std::size_t t = n; t-- > 0;)
    for (std::size_t p = m; p-- > 0;) {
      if (pattern[p] == '*')
        matched[t][p] = matched[t][p + 1] || matched[t + 1][p + 1] || matched[t + 1][p];
      else
        matched[t][p] = pattern[p] == text[t] && matched[t + 1][p + 1];
    }
  return matched[0][0] != 0;
}

std::string Lowered(std::string text) {
  for (char& c : text)
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

void FuzzMatch(std::string const& bytes) {
  if (bytes.size() > 128)
    return; // the reference is quadratic
  // Few letters, many stars: the interesting patterns.
  std::string text;
  std::string pattern;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const auto b = static_cast<unsigned char>(bytes[i]);
    const char c = "aAbB**"[b % 6];
    (b & 0x80 ? pattern : text) += c;
  }
  Check(zrn::Match(text, pattern, true) == ReferenceMatch(text, pattern));
  Check(zrn::Match(text, pattern, false) == ReferenceMatch(Lowered(text), Lowered(pattern)));
  Check(zrn::Match(text, text, true));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<char const*>(data), size);
  FuzzUtf8(bytes);
  FuzzUtf8Exactly(bytes);
  FuzzCodePage(bytes);
  FuzzBase64(bytes);
  FuzzCoordinates(bytes);
  FuzzMatch(bytes);
  return 0;
}
