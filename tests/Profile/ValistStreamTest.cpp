#include <zrn/Profile/ValistStream.h>

#include <gtest/gtest.h>

#include "Text/CommaLocale.h"

#include <clocale>
#include <cstring>
#include <string>

namespace zrn {
namespace {

std::string Format(ValistStream const& stream, char const* format, std::size_t size = 2048) {
  std::string buffer(size, '\x7f');
  const std::size_t n = stream.Format(format, buffer.data(), buffer.size());
  EXPECT_EQ(n, std::strlen(buffer.c_str()));
  return buffer.substr(0, n);
}

template <class... Args> std::string Format(char const* format, Args const&... args) {
  ValistStream stream;
  (stream.Append(args), ...);
  return Format(stream, format);
}

TEST(ValistStreamFormat, IntegersHonourFlagsWidthPrecisionAndLength) {
  EXPECT_EQ(Format("parameter %d", 2), "parameter 2");
  EXPECT_EQ(Format("[%5d|%-5d|%05d|%+d|% d]", 42, 42, 42, 42, 42), "[   42|42   |00042|+42| 42]");
  EXPECT_EQ(Format("%.3d %i", 7, -7), "007 -7");
  EXPECT_EQ(Format("%u %x %X %o %#x", 4000000000u, 255, 255, 8, 255), "4000000000 ff FF 10 0xff");
  // Without a length prefix a slot is read as 32 bits, as a C int would be.
  EXPECT_EQ(Format("%d %x", -1LL, -1), "-1 ffffffff");
  EXPECT_EQ(Format("%lld %I64d %I64u %llx", -5000000000LL, -5000000000LL, 18446744073709551615ULL,
                   0x123456789abULL),
            "-5000000000 -5000000000 18446744073709551615 123456789ab");
  EXPECT_EQ(Format("%hd %hhd %hu", 70000, 300, -1), "4464 44 65535");
  EXPECT_EQ(Format("%c%c", 'o', 'k'), "ok");
}

TEST(ValistStreamFormat, FloatingPointStringsAndPointers) {
  EXPECT_EQ(Format("%f %.2f %e %g %G", 1.5, 3.14159, 12345.0, 0.0001, 1e20),
            "1.500000 3.14 1.234500e+04 0.0001 1E+20");
  EXPECT_EQ(Format("%s and %s", "tea", std::string("cake")), "tea and cake");
  EXPECT_EQ(Format("[%6s|%-6s|%.2s]", "ab", "ab", "abcdef"), "[    ab|ab    |ab]");
  EXPECT_EQ(Format("%s", static_cast<char const*>(nullptr)), "(null)");
  EXPECT_EQ(Format("%p", reinterpret_cast<void const*>(0xABCDEF)), "0000000000ABCDEF");
  EXPECT_EQ(Format("100%% sure"), "100% sure");
}

TEST(ValistStreamFormat, FractionsUseAFullStopUnderACommaDecimalLocale) {
  ZRN_WITH_COMMA_LOCALE(locale);
  EXPECT_EQ(Format("%f|%.2e|%g|%a|%8.3f", 1.5, 12345.0, 0.25, 1.5, -2.0),
            "1.500000|1.23e+04|0.25|0x1.8p+0|  -2.000");
  EXPECT_EQ(Format("%s %d", "1,5", 1234567), "1,5 1234567");
  // The caller's locale is in force again afterwards.
  EXPECT_STREQ(std::localeconv()->decimal_point, ",");
}

TEST(ValistStreamFormat, StarTakesWidthAndPrecisionFromSlots) {
  EXPECT_EQ(Format("[%*d]", 5, 42), "[   42]");
  EXPECT_EQ(Format("[%*d]", -5, 42), "[42   ]");
  EXPECT_EQ(Format("[%.*s]", 3, "abcdef"), "[abc]");
  EXPECT_EQ(Format("[%.*f]", -1, 0.5), "[0.500000]");
}

TEST(ValistStreamFormat, MismatchedFormatsNeverReadOutsideTheStream) {
  // Conversions short of arguments, unknown ones and an unfinished one are
  // shown as written and take no slot.
  EXPECT_EQ(Format("err_failed: %s"), "err_failed: %s");
  EXPECT_EQ(Format("%d and %s", 5), "5 and %s");
  EXPECT_EQ(Format("%y %n %d", 9), "%y %n 9");
  EXPECT_EQ(Format("%*d", 5), "%*d");
  EXPECT_EQ(Format("tail %"), "tail %");
  EXPECT_EQ(Format("tail %-0"), "tail %-0");
  // %s on a slot that holds no string argument.
  EXPECT_EQ(Format("%s|%s", 0, 1234), "(null)|(?)");
  EXPECT_EQ(Format("%s", reinterpret_cast<void const*>(0x10)), "(?)");
}

TEST(ValistStreamFormat, OutputIsCutToTheBuffer) {
  ValistStream stream;
  stream.Append(std::string(3000, 'x'));
  EXPECT_EQ(Format(stream, "%s").size(), 2047u);
  EXPECT_EQ(Format(stream, "%s", 10), std::string(9, 'x'));

  ValistStream number;
  number.Append(1);
  EXPECT_EQ(Format(number, "%99999999d").size(), 2047u);
  EXPECT_EQ(Format(number, "%.99999999d").size(), 2047u);
  EXPECT_EQ(Format(number, "abc%d", 3), "ab");
  EXPECT_EQ(Format(number, "abc", 1), "");
  char untouched = 'u';
  EXPECT_EQ(number.Format("abc", &untouched, 0), 0u);
  EXPECT_EQ(untouched, 'u');
}

TEST(ValistStream, LaysOutSlotsPoolAndStringSlotList) {
  ValistStream stream;
  stream << "ab" << 7 << std::string("cde\0f", 5); // a string ends at its first NUL
  EXPECT_EQ(stream.ArgumentCount(), 3u);
  EXPECT_EQ(stream.GetArgumentBytes().size(), 24u);
  EXPECT_EQ(stream.GetStringPool(), std::string("ab\0cde\0", 7));
  EXPECT_EQ(stream.GetStringSlots(), (std::vector<int>{0, 16}));
  EXPECT_FALSE(stream.IsResolved());

  // Before resolution a string slot holds the string's pool offset.
  std::int32_t offset;
  std::memcpy(&offset, stream.GetArgumentBytes().data() + 16, sizeof offset);
  EXPECT_EQ(offset, 3);

  stream.Resolve();
  EXPECT_TRUE(stream.IsResolved());
  char const* pointer;
  std::memcpy(&pointer, stream.GetArgumentBytes().data() + 16, sizeof pointer);
  EXPECT_EQ(pointer, stream.GetStringPool().data() + 3);
  EXPECT_EQ(Format(stream, "%s %d %s"), "ab 7 cde");
}

TEST(ValistStream, StringsSurviveResolveAppendCopyAndMove) {
  ValistStream stream;
  stream << "short";
  stream.Resolve();
  // Appending after resolution grows the pool well past its first buffer.
  std::string expected = "short";
  std::string format = "%s";
  for (int i = 0; i < 50; ++i) {
    const std::string text = "string number " + std::to_string(i);
    stream << text;
    stream.Resolve();
    expected += " " + text;
    format += " %s";
  }
  EXPECT_EQ(Format(stream, format.c_str()), expected);

  ValistStream small;
  small << "x"
        << "y";
  small.Resolve();
  ValistStream copy(small);
  ValistStream moved(std::move(copy));
  ValistStream assigned;
  assigned = moved;
  small.Clear();
  EXPECT_EQ(Format(moved, "%s%s"), "xy");
  EXPECT_EQ(Format(assigned, "%s%s"), "xy");
  EXPECT_EQ(small.ArgumentCount(), 0u);
  EXPECT_TRUE(small.GetStringPool().empty());
}

} // namespace
} // namespace zrn
