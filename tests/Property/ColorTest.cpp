#include <zrn/Property/Color.h>

#include <gtest/gtest.h>

#include <limits>

namespace zrn {
namespace {

void ExpectChannels(CColor const& c, int r, int g, int b, int a) {
  EXPECT_EQ(c.GetRed(), r);
  EXPECT_EQ(c.GetGreen(), g);
  EXPECT_EQ(c.GetBlue(), b);
  EXPECT_EQ(c.GetAlpha(), a);
}

TEST(CColor, IntegerForms) {
  EXPECT_EQ(CColor().ToInteger(), 0xFF000000u);
  EXPECT_EQ(CColor::Red.ToInteger(), 0xFF0000FFu);
  EXPECT_EQ(CColor::Red.ToIntegerARGB(), 0x0000FFFFu);
  EXPECT_EQ(CColor::Red.ToIntegerABGR(), 0xFF0000FFu);
  CColor c;
  ExpectChannels(c.FromInteger(0x11223344), 0x44, 0x33, 0x22, 0x11);
  ExpectChannels(c.FromIntegerARGB(0x11223344), 0x33, 0x22, 0x11, 0x44);
  ExpectChannels(c.FromIntegerABGR(0x11223344), 0x11, 0x22, 0x33, 0x44);
  const CColor odd(1, 2, 3, 4);
  EXPECT_EQ(CColor().FromIntegerARGB(odd.ToIntegerARGB()), odd);
  EXPECT_EQ(CColor().FromIntegerABGR(odd.ToIntegerABGR()), odd);
}

TEST(CColor, FloatFormsTruncateAndWrap) {
  for (int v = 0; v < 256; ++v) {
    const auto u = static_cast<unsigned char>(v);
    float floats[4];
    CColor(u, u, u, u).MakeFloatArray(floats);
    EXPECT_EQ(CColor::MakeFromFloatArray(floats), CColor(u, u, u, u)) << v;
  }
  const float in[4] = {1.0f, 0.5f, 2.0f, -0.1f};
  ExpectChannels(CColor::MakeFromFloatArray(in), 255, 127, 254, 231);
  const float wild[4] = {1e30f, -1e30f, std::numeric_limits<float>::quiet_NaN(), 0.0f};
  ExpectChannels(CColor::MakeFromFloatArray(wild), 0, 0, 0, 0);
}

TEST(CColor, NamedColours) {
  ExpectChannels(CColor::PaleGodenrod, 238, 232, 170, 255);
  ExpectChannels(CColor::GainSboro, 220, 220, 220, 255);
  EXPECT_NE(CColor::Zero, CColor::Black);
  EXPECT_EQ(CColor::Zero.ToInteger(), 0u);
}

} // namespace
} // namespace zrn
