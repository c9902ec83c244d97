#include <zrn/Property/Variant.h>

#include <gtest/gtest.h>

#include "Text/CommaLocale.h"

#include <limits>

namespace zrn {
namespace {

TEST(CVariantConvert, DoublesAsTextWithEightSignificantDigits) {
  const std::pair<double, char const*> table[] = {
      {1.5, "1.5"},
      {100.0, "100."},
      {0.0, "0."},
      {0.25, "0.25"},
      {-2.5, "-2.5"},
      {0.05, "5.e-002"},
      {123456789.0, "1.2345679e+008"},
      {12345678.0, "12345678."},
      {99999999.7, "1.e+008"},
      {0.1, "0.1"},
      {0.123456789, "0.12345679"},
      {-1e-10, "-1.e-010"},
      {1e300, "1.e+300"},
      {2.0 / 3.0, "0.66666667"},
  };
  for (auto const& [value, text] : table)
    EXPECT_EQ(CVariant(value).toString(), text) << value;
  EXPECT_EQ(CVariant(0.1f).toString(), "0.1");
  EXPECT_EQ(CVariant(std::numeric_limits<double>::infinity()).toString(), "inf");
}

TEST(CVariantConvert, IntegerPathNarrowsWithoutRangeChecks) {
  bool ok = false;
  EXPECT_EQ(CVariant(3.99).toInt(), 3);
  EXPECT_EQ(CVariant(-3.99).toInt(), -3);
  EXPECT_EQ(CVariant(300).toUChar(&ok), 44);
  EXPECT_TRUE(ok);
  EXPECT_FALSE(CVariant(0.5).toBool());
  EXPECT_TRUE(CVariant(2).toBool());
  EXPECT_EQ(CVariant(-1).toUInt64(), std::numeric_limits<unsigned long long>::max());
  EXPECT_EQ(CVariant(1e30).toInt64(), std::numeric_limits<long long>::min());
  EXPECT_EQ(CVariant(std::numeric_limits<double>::quiet_NaN()).toInt(), 0);
  EXPECT_EQ(CVariant(CColor::Red).toInt(), -16776961);
  EXPECT_EQ(CVariant(255).toColor(), CColor(255, 0, 0, 0));
  EXPECT_FLOAT_EQ(CVariant(7).toFloat(), 7.0f);
}

TEST(CVariantConvert, TextPathParsesLikeTheRuntime) {
  bool ok = false;
  EXPECT_EQ(CVariant("12abc").toInt(), 12);
  EXPECT_EQ(CVariant("abc").toInt(&ok), 0);
  EXPECT_TRUE(ok); // text that is not a number is no failure
  EXPECT_EQ(CVariant(" 2.5").toDouble(), 2.5);
  EXPECT_EQ(CVariant(" 2.5").toInt(), 2);
  EXPECT_EQ(CVariant("-99999999999999999999").toInt64(), std::numeric_limits<long long>::min());
  EXPECT_EQ(CVariant("+99999999999999999999").toInt64(), std::numeric_limits<long long>::max());
  EXPECT_EQ(CVariant("1e999").toDouble(), std::numeric_limits<double>::infinity());
  EXPECT_EQ(CVariant(L"\t-42x").toInt(), -42);
  EXPECT_EQ(CVariant(L"3.25e1").toDouble(), 32.5);
}

TEST(CVariantConvert, NumbersAsText) {
  EXPECT_EQ(CVariant(true).toString(), "1");
  EXPECT_EQ(CVariant('A').toString(), "65");
  EXPECT_EQ(CVariant(std::numeric_limits<unsigned long long>::max()).toString(), "-1");
  EXPECT_EQ(CVariant(42).toWString(), L"42");
  EXPECT_EQ(CVariant(std::string("a\0b", 3)).toWString(), L"a");
  EXPECT_EQ(CVariant(std::string("a\0b", 3)).toString().size(), 3u); // its own type: whole
}

TEST(CVariantConvert, FailuresGiveZeroValues) {
  CVariant id;
  id.SetObjectID(5);
  CVariant null;
  for (CVariant* v : {&id, &null}) {
    bool ok = true;
    EXPECT_EQ(v->toInt(&ok), 0);
    EXPECT_FALSE(ok);
    ok = true;
    EXPECT_EQ(v->toString(&ok), "");
    EXPECT_FALSE(ok);
    EXPECT_EQ(v->toDouble(&ok), 0.0);
    EXPECT_EQ(v->toColor(&ok), CColor(0, 0, 0, 255));
    EXPECT_FALSE(ok);
  }
}

TEST(CVariantConvert, NumberTextIgnoresTheProcessLocale) {
  ZRN_WITH_COMMA_LOCALE(locale);
  EXPECT_EQ(CVariant(1.5).toString(), "1.5");
  EXPECT_EQ(CVariant(-2.5e10).toWString(), L"-2.5e+010");
  EXPECT_EQ(CVariant(std::string("2.75")).toDouble(), 2.75);
  EXPECT_EQ(CVariant(std::wstring(L" -0.5x")).toFloat(), -0.5f);
  EXPECT_EQ(CVariant(std::string("2,75")).toDouble(), 2.0);
}

} // namespace
} // namespace zrn
