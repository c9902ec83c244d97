// Typed input: full-width characters and coordinate triples.
#include <zrn/Text/InputParser.h>

#include <gtest/gtest.h>

#include "Text/CommaLocale.h"

#include <array>
#include <memory>
#include <string>

namespace zrn {
namespace {

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

} // namespace
} // namespace zrn
