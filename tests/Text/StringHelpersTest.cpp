#include <zrn/Text/StringHelpers.h>

#include <gtest/gtest.h>

#include "Text/CommaLocale.h"

#include <cstdint>
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

TEST(StringHelpers, WhiteSpaceIsBlankTabAndLineEndsOnly) {
  EXPECT_TRUE(IsWhiteSpace(' ') && IsWhiteSpace('\t') && IsWhiteSpace('\r') && IsWhiteSpace('\n'));
  EXPECT_FALSE(IsWhiteSpace('\v') || IsWhiteSpace('\f') || IsWhiteSpace(0) || IsWhiteSpace(0xA0));
}

TEST(StringHelpers, TrimDropsWhiteSpaceFromBothEndsOrOnlyTheFront) {
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

TEST(StringHelpers, SplitFilenameTakesEitherSlashAndAnswersWithForwardOnes) {
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
}

TEST(StringHelpers, ExtensionIsFromTheLastDotEvenPastASlash) {
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

TEST(StringHelpers, FormatsNumbersAlikeUnderACommaDecimalLocale) {
  ZRN_WITH_COMMA_LOCALE(locale);
  EXPECT_EQ(FFormatString("%.2f %g %.1e", 1.5, 0.25, 12345.0), "1.50 0.25 1.2e+04");
  // Other conversions still follow the locale: its charset encodes %ls.
  EXPECT_EQ(FFormatString("%ls", L"\u00E9"), "\xC3\xA9");
  EXPECT_EQ(FFormatString("%s", std::string(3000, '7').c_str()), std::string(3000, '7'));
}

} // namespace
} // namespace zrn
