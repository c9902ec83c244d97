#include <zrn/Text/Base64.h>
#include <zrn/Text/InputParser.h>
#include <zrn/Text/StringHelpers.h>

#include <gtest/gtest.h>

#include "Text/CommaLocale.h"

#include <array>
#include <cmath>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace zrn {
namespace {

TEST(StringHelpers, FormatsTextOfAnyLength) {
  EXPECT_EQ(FFormatString("%d-%s-%.2f", 42, "x", 1.5), "42-x-1.50");
  EXPECT_EQ(FFormatString("%s", ""), "");
  for (std::size_t length : {1023u, 1024u, 5000u}) {
    const std::string longText(length, 'q');
    EXPECT_EQ(FFormatString("<%s>", longText.c_str()), "<" + longText + ">");
  }
}

TEST(StringHelpers, WhiteSpaceAndTrim) {
  EXPECT_TRUE(IsWhiteSpace(' ') && IsWhiteSpace('\t') && IsWhiteSpace('\r') && IsWhiteSpace('\n'));
  EXPECT_FALSE(IsWhiteSpace('\v') || IsWhiteSpace('\f') || IsWhiteSpace(0) || IsWhiteSpace(0xA0));
  EXPECT_EQ(Trim("  ab\t", false), "ab");
  EXPECT_EQ(Trim("  ab\t", true), "ab\t");
  EXPECT_EQ(Trim(" \r\n\t ", false), "");
  EXPECT_EQ(Trim(" \r\n\t ", true), "");
  EXPECT_EQ(Trim("", false), "");
  EXPECT_EQ(Trim("\va b\f", false), "\va b\f");
}

TEST(StringHelpers, SplitAppendsTrimmedTokens) {
  std::vector<std::string> tokens = {"kept"};
  EXPECT_EQ(Split("a,,b", tokens, ",", false), 4);
  EXPECT_EQ(tokens, (std::vector<std::string>{"kept", "a", "", "b"}));
  tokens.clear();
  EXPECT_EQ(Split("a,,b", tokens, ",", true), 2);
  tokens.clear();
  EXPECT_EQ(Split(" x ; y\t|z ,", tokens, ";|,", false), 4);
  EXPECT_EQ(tokens, (std::vector<std::string>{"x", "y", "z", ""}));
  tokens.clear();
  EXPECT_EQ(Split("", tokens, ",", false), 1);
  EXPECT_EQ(Split("", tokens, ",", true), 1);
  EXPECT_EQ(Split(" a,b ", tokens, "", false), 2);
  EXPECT_EQ(tokens.back(), "a,b");
}

TEST(StringHelpers, MatchBacktracksButNeedsTheTextToLast) {
  EXPECT_TRUE(Match("abc", "a*c", true));
  EXPECT_TRUE(Match("abc", "ab*", true));
  EXPECT_FALSE(Match("abc", "*b", true));
  EXPECT_TRUE(Match("aaa", "*aa", true)); // the star covers more than its first choice
  EXPECT_TRUE(Match("aaab", "*aab", true));
  EXPECT_TRUE(Match("ab", "a*b", true));  // a star inside may cover nothing
  EXPECT_FALSE(Match("ab", "ab*", true)); // one at the end covers at least one character
  for (char const* text : {"a", "xyz", "*"})
    EXPECT_TRUE(Match(text, "*", true));
  EXPECT_FALSE(Match("", "*", true));
  EXPECT_TRUE(Match("", "", true));
  EXPECT_FALSE(Match("a", "", true));
  EXPECT_FALSE(Match("File.TXT", "*.txt", true));
  EXPECT_TRUE(Match("File.TXT", "*.txt", false));
  EXPECT_TRUE(Match("a?c", "a?c", true)); // no single-character wildcard
  EXPECT_FALSE(Match("abc", "a?c", true));
}

TEST(StringHelpers, StartsWith) {
  EXPECT_TRUE(StartsWith("Hello", "He", false));
  EXPECT_FALSE(StartsWith("Hello", "he", false));
  EXPECT_TRUE(StartsWith("Hello", "hELLO", true));
  EXPECT_FALSE(StartsWith("Hello", "", false));
  EXPECT_FALSE(StartsWith("He", "Hello", true));
}

TEST(StringHelpers, PathsAndExtensions) {
  std::string file = "old";
  std::string directory = "old";
  SplitFilename("c:\\dir\\file.txt", file, directory);
  EXPECT_EQ(file, "file.txt");
  EXPECT_EQ(directory, "c:/dir/");
  SplitFilename("/usr/lib/", file, directory);
  EXPECT_EQ(file, "");
  EXPECT_EQ(directory, "/usr/lib/");
  SplitFilename("file.txt", file, directory);
  EXPECT_EQ(file, "file.txt");
  EXPECT_EQ(directory, "");
  EXPECT_EQ(ExtractFileExt(L"a.b/c"), L".b/c");
  EXPECT_EQ(ExtractFileExt(L"dir/archive.tar.gz"), L".gz");
  EXPECT_EQ(ExtractFileExt(L"README"), L"");
}

TEST(StringHelpers, NullAndFillPatternPointers) {
  EXPECT_TRUE(IsNullPointer(nullptr));
  for (std::uintptr_t fill : {0xCDCDCDCDCDCDCDCD, 0xFEEEFEEEFEEEFEEE, 0xFEFEFEFEFEFEFEFE})
    EXPECT_TRUE(IsNullPointer(reinterpret_cast<void const*>(fill)));
  EXPECT_FALSE(IsNullPointer(reinterpret_cast<void const*>(std::uintptr_t{0xCDCDCDCD})));
  int value = 0;
  EXPECT_FALSE(IsNullPointer(&value));
}

TEST(CInputParser, FullWidthToAscii) {
  wchar_t* out = nullptr;
  EXPECT_EQ(CInputParser::ConvertToDBC(L"\uFF11\u3000\uFF41\uFF5E\uFF5F\u4E2D", &out), 1);
  const std::unique_ptr<wchar_t[]> owner(out);
  EXPECT_EQ(std::wstring(out), L"1 a~\uFF5F\u4E2D");
  EXPECT_EQ(out[12], L'\0'); // 2 x 6 + 1 characters
}

std::array<double, 3> ParsedOr(std::wstring const& text, std::array<double, 3> xyz) {
  if (!CInputParser::explainXYZ(text, &xyz[0], &xyz[1], &xyz[2]))
    return {-7, -7, -7};
  return xyz;
}

TEST(CInputParser, ReadsCoordinateTriples) {
  using Xyz = std::array<double, 3>;
  const Xyz untouched = {9, 9, 9};
  EXPECT_EQ(ParsedOr(L"1,2,3", untouched), (Xyz{1, 2, 3}));
  EXPECT_EQ(ParsedOr(L",2,3", untouched), (Xyz{0, 2, 3}));
  EXPECT_EQ(ParsedOr(L"1,,3", untouched), (Xyz{1, 0, 3}));
  EXPECT_EQ(ParsedOr(L"1,2", untouched), (Xyz{1, 2, 0}));
  EXPECT_EQ(ParsedOr(L" -1.5, 2e3,\t.25,junk", untouched), (Xyz{-1.5, 2000, 0.25}));
  EXPECT_EQ(ParsedOr(L"\uFF11\uFF0C\uFF12\uFF0C\uFF13", untouched), (Xyz{1, 2, 3}));
  EXPECT_EQ(ParsedOr(L"1e100,-1e100,0", untouched), (Xyz{1e100, -1e100, 0}));
  for (std::wstring bad :
       {L"1,x,3", L"1 ,2,3", L"1,2,3x", L"", L" ,1,2", L"1e101,0,0", L"0,0,-inf", L"nan,0,0"})
    EXPECT_EQ(ParsedOr(bad, untouched), (Xyz{-7, -7, -7})) << testing::PrintToString(bad);

  double x = 9;
  double y = 9;
  EXPECT_EQ(CInputParser::explainXYZ(L"1,2,3", &x, &y, nullptr), 0);
  EXPECT_EQ(x, 9); // outputs stay untouched on failure
}

TEST(CInputParser, ReadsFractionsUnderACommaDecimalLocale) {
  ZRN_WITH_COMMA_LOCALE(locale);
  using Xyz = std::array<double, 3>;
  const Xyz untouched = {9, 9, 9};
  EXPECT_EQ(ParsedOr(L"1.5, -2.25,.125", untouched), (Xyz{1.5, -2.25, 0.125}));
  EXPECT_EQ(ParsedOr(L"1,5", untouched), (Xyz{1, 5, 0}));         // a comma only ever separates
  EXPECT_EQ(ParsedOr(L"0x10,0,0", untouched), (Xyz{-7, -7, -7})); // decimal numbers only
}

TEST(StringHelpers, FormatsNumbersAlikeUnderACommaDecimalLocale) {
  ZRN_WITH_COMMA_LOCALE(locale);
  EXPECT_EQ(FFormatString("%.2f %g %.1e", 1.5, 0.25, 12345.0), "1.50 0.25 1.2e+04");
  // Other conversions still follow the locale: its charset encodes %ls.
  EXPECT_EQ(FFormatString("%ls", L"\u00E9"), "\xC3\xA9");
  EXPECT_EQ(FFormatString("%s", std::string(3000, '7').c_str()), std::string(3000, '7'));
}

std::string Encode(std::string const& bytes) {
  return base64_encode(reinterpret_cast<unsigned char const*>(bytes.data()),
                       static_cast<unsigned int>(bytes.size()));
}

TEST(Base64, StandardVectorsBothWays) {
  const std::pair<std::string, std::string> vectors[] = {{"", ""},
                                                         {"f", "Zg=="},
                                                         {"fo", "Zm8="},
                                                         {"foo", "Zm9v"},
                                                         {"foob", "Zm9vYg=="},
                                                         {"fooba", "Zm9vYmE="},
                                                         {"foobar", "Zm9vYmFy"}};
  for (auto const& [bytes, text] : vectors) {
    EXPECT_EQ(Encode(bytes), text);
    EXPECT_EQ(base64_decode(text), bytes);
  }
  const std::string binary("\x00\xFF\xFE\x3E\x3F\x00", 6);
  EXPECT_EQ(Encode(binary), "AP/+Pj8A");
  EXPECT_EQ(base64_decode("AP/+Pj8A"), binary);
}

TEST(Base64, DecodingStopsAtPaddingOrForeignCharacters) {
  EXPECT_EQ(base64_decode("Zm9v\nYmFy"), "foo");
  EXPECT_EQ(base64_decode("Zm9vYm Fy"), "foob");
  EXPECT_EQ(base64_decode("Zg==Zm9v"), "f");
  EXPECT_EQ(base64_decode("Zm9vY"), "foo"); // a lone last character gives nothing
  EXPECT_EQ(base64_decode("Zm-_"), "f");    // the URL-safe alphabet is foreign here
  EXPECT_EQ(base64_decode(std::string("Zm\0v", 4)), "f");
  EXPECT_EQ(base64_decode("\xC3\xA9Zm9v"), "");
}

std::string RandomBytes(std::mt19937& random, std::size_t size) {
  std::string bytes(size, '\0');
  for (char& c : bytes)
    c = static_cast<char>(random());
  return bytes;
}

// Lengths around the vector paths' blocks (24 bytes, 32 characters) and the
// chunks results are built in (3,072 bytes, 4,096 characters).
std::vector<std::size_t> LengthsAroundBlocks() {
  std::vector<std::size_t> lengths;
  for (std::size_t n = 0; n <= 100; ++n)
    lengths.push_back(n);
  for (std::size_t n = 3060; n <= 3090; ++n)
    lengths.push_back(n);
  lengths.push_back(100000);
  return lengths;
}

TEST(Base64Blocks, EveryLengthEncodesGroupByGroupAndRoundTrips) {
  std::mt19937 random(7);
  for (std::size_t length : LengthsAroundBlocks()) {
    const std::string bytes = RandomBytes(random, length);
    const std::string text = Encode(bytes);
    // Groups of three bytes alone are too short for any block path.
    std::string groupwise;
    for (std::size_t i = 0; i < length; i += 3)
      groupwise += Encode(bytes.substr(i, 3));
    ASSERT_EQ(text, groupwise) << length;
    ASSERT_EQ(base64_decode(text), bytes) << length;
  }
}

TEST(Base64Blocks, DecodingStopsAtTheFirstForeignCharacterWherever) {
  std::mt19937 random(8);
  const std::string bytes = RandomBytes(random, 150);
  const std::string text = Encode(bytes);
  for (std::size_t at = 0; at < text.size(); ++at)
    for (char foreign : {'\n', '=', '-', '\x80', '\0'}) {
      std::string broken = text;
      broken[at] = foreign;
      const std::string expected =
          at % 4 == 0 ? bytes.substr(0, at / 4 * 3) : base64_decode(text.substr(0, at));
      ASSERT_EQ(base64_decode(broken), expected) << at << " " << int(foreign);
    }
}

} // namespace
} // namespace zrn
