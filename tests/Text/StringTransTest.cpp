#include <zrn/Text/StringTrans.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace zrn {
namespace {

using T = GStdStringTrans;

// "中文" in code page 936 and in UTF-8.
const std::wstring kChinese = L"\u4E2D\u6587";
const std::string kChineseGbk = "\xD6\xD0\xCE\xC4";
const std::string kChineseUtf8 = "\xE4\xB8\xAD\xE6\x96\x87";

// Takes ownership of a raw result.
std::wstring Own(wchar_t* text) { return std::unique_ptr<wchar_t[]>(text).get(); }
std::string Own(char* text) { return std::unique_ptr<char[]>(text).get(); }

std::wstring FromUtf8(std::string const& bytes) { return Own(T::Utf8ToUnicode(bytes.c_str())); }

TEST(GStdStringTrans, CodePage936BothWaysInEveryForm) {
  EXPECT_EQ(T::WstringToString(kChinese), kChineseGbk);
  EXPECT_EQ(T::WstringToString(kChinese.c_str()), kChineseGbk);
  EXPECT_EQ(T::WstringToString(kChinese, "CHS"), kChineseGbk);
  EXPECT_EQ(Own(T::UnicodeToAnsi(kChinese.c_str())), kChineseGbk);
  EXPECT_EQ(Own(T::UnicodeToAnsi(kChinese.c_str(), "Chinese_China.936")), kChineseGbk);
  EXPECT_EQ(T::StringToWString(kChineseGbk), kChinese);
  EXPECT_EQ(T::StringToWString("a" + kChineseGbk + "z"), L"a" + kChinese + L"z");
  EXPECT_EQ(Own(T::AnsiToUnicode(kChineseGbk.c_str())), kChinese);
  EXPECT_EQ(T::Utf8ToAnsi(kChineseUtf8.c_str()), kChineseGbk);
  EXPECT_EQ(T::StringToWString("\x80"), L"\u20AC"); // the code page's euro sign
}

TEST(GStdStringTrans, EmptyTextInEveryForm) {
  EXPECT_EQ(T::WstringToString(std::wstring()), "");
  EXPECT_EQ(T::WstringToString(std::wstring(), "no_such_locale"), "");
  EXPECT_EQ(T::WstringToString(L""), "");
  EXPECT_EQ(T::StringToWString(std::string()), L"");
  EXPECT_EQ(T::StringToWString(""), L"");
  EXPECT_EQ(T::Utf8ToAnsi(""), "");
  for (wchar_t* wide : {T::AnsiToUnicode(""), T::Utf8ToUnicode("")}) {
    EXPECT_EQ(wide[0], L'\0');
    delete[] wide;
  }
  for (char* narrow :
       {T::UnicodeToAnsi(L""), T::UnicodeToAnsi(L"", "chs"), T::UnicodeToUtf8(L"")}) {
    EXPECT_EQ(narrow[0], '\0');
    delete[] narrow;
  }
}

TEST(GStdStringTrans, NarrowConversionsStopAtWhatTheyCannotConvert) {
  EXPECT_EQ(T::WstringToString(L"ab\U0001F600cd"), "ab"); // not in code page 936
  EXPECT_EQ(T::WstringToString(std::wstring(L"ab\0cd", 5)), "ab");
  EXPECT_EQ(T::StringToWString("ab\xFFz"), L"ab"); // invalid byte
  EXPECT_EQ(T::StringToWString("ab\xD6"), L"ab");  // cut short
  EXPECT_EQ(T::StringToWString(std::string("ab\0cd", 5)), L"ab");
}

TEST(GStdStringTrans, LocaleNamesChooseTheCharset) {
  EXPECT_EQ(T::WstringToString(L"\u00E9", "C.UTF-8"), "\xC3\xA9");
  EXPECT_EQ(T::WstringToString(L"\u00E9", "ISO-8859-1"), "\xE9");
  EXPECT_EQ(T::WstringToString(L"\u00E9", "fr_FR.ISO-8859-1@euro"), "\xE9");
  EXPECT_EQ(T::WstringToString(L"\u00E9", ".1252"), "\xE9");
  EXPECT_EQ(T::WstringToString(L"\u00E9", "C"), ""); // ASCII only
  // More charsets than a thread keeps open at once, each used twice.
  for (int round = 0; round < 2; ++round)
    for (char const* name : {"C.UTF-8", ".936", "ISO-8859-1", ".1251", ".1252", "KOI8-R", "BIG5",
                             "EUC-KR", "C.ISO-8859-15", "EUC-JP", "GB18030"})
      EXPECT_EQ(T::WstringToString(L"Az", name), "Az") << name;
}

TEST(GStdStringTrans, UnknownLocaleUsesTheLocaleInForceAndLeavesItAlone) {
  ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
  const std::string before = std::setlocale(LC_CTYPE, nullptr);
  EXPECT_EQ(T::WstringToString(L"\u00E9", "no_such_locale"), "\xC3\xA9");
  EXPECT_EQ(T::WstringToString(kChinese), kChineseGbk);
  EXPECT_EQ(std::setlocale(LC_CTYPE, nullptr), before);
  std::setlocale(LC_CTYPE, "C");
}

TEST(GStdStringTrans, WideToNarrowIsCutAtTwiceTheLengthOnWholeCharacters) {
  // Three UTF-8 bytes per character against a bound of two per character.
  EXPECT_EQ(T::WstringToString(L"\u4E2D", "C.UTF-8"), "");
  EXPECT_EQ(T::WstringToString(L"\u4E2D\u4E2D", "C.UTF-8"), "\xE4\xB8\xAD");
  EXPECT_EQ(T::WstringToString(L"a\u4E2D", "C.UTF-8"), "a\xE4\xB8\xAD");
}

TEST(GStdStringTrans, Utf8DecodesOneUnitPerCodePoint) {
  EXPECT_EQ(FromUtf8("A\xC3\xA9"), L"A\u00E9");
  EXPECT_EQ(FromUtf8("\xF0\x9F\x98\x80"), std::wstring(1, L'\U0001F600'));
  EXPECT_EQ(FromUtf8(kChineseUtf8), kChinese);
  EXPECT_EQ(FromUtf8("\xC1\x81\xE0\x81\x81"), L"AA"); // overlong forms are accepted
  EXPECT_EQ(FromUtf8("a\xC0\x80z"), L"a");            // a decoded 0 ends the text
}

// Long texts go through the block paths; every insertion point puts a
// character at a different place in a block, or across two, or in the tail.
TEST(GStdStringTrans, Utf8BothWaysAtEveryOffsetOfLongTexts) {
  const std::string ascii = "0123456789abcdefghijklmnopqrstuvwxyz!#$%&()*+-./:;<=>?@[]^_{}";
  const std::wstring wideAscii(ascii.begin(), ascii.end());
  const std::pair<std::wstring, std::string> characters[] = {
      {L"\u00E9", "\xC3\xA9"},
      {L"\u4E2D\u6587", kChineseUtf8},
      {L"\U0001F600", "\xF0\x9F\x98\x80"},
      {L"\u00E9\u4E2D\U0001F600", "\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80"}};
  for (std::size_t i = 0; i <= ascii.size(); ++i) {
    for (auto const& [wide, utf8] : characters) {
      const std::wstring text = wideAscii.substr(0, i) + wide + wideAscii.substr(i);
      const std::string bytes = ascii.substr(0, i) + utf8 + ascii.substr(i);
      ASSERT_EQ(Own(T::UnicodeToUtf8(text.c_str())), bytes) << i;
      ASSERT_EQ(FromUtf8(bytes), text) << i;
    }
    const std::string head = ascii.substr(0, i);
    for (char const* invalid : {"\x80", "\xF8", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xE4\xB8"})
      ASSERT_EQ(FromUtf8(head + invalid + ascii.substr(i)), L"") << i << invalid;
    ASSERT_EQ(FromUtf8(head + "\xE4\xB8"), L"") << i; // cut at the very end
    ASSERT_EQ(FromUtf8(head + "\xE0\x80\x80" + ascii), std::wstring(head.begin(), head.end()));
    const wchar_t beyond[] = {static_cast<wchar_t>(0x200000), 0};
    ASSERT_EQ(Own(T::UnicodeToUtf8((wideAscii.substr(0, i) + beyond + wideAscii).c_str())),
              head + "\xEF\xBF\xBD" + ascii);
  }
}

TEST(GStdStringTrans, InvalidUtf8GivesTheEmptyText) {
  for (std::string bytes :
       {"\x80", "a\xBF", "\xF8\x88\x80\x80\x80", "\xFF", "\xC3", "abc\xE4\xB8", "\xE4\x41\x80",
        "\xED\xA0\x80", "\xED\xBF\xBF", "\xF4\x90\x80\x80", "a\xC0\x80\xFF"})
    EXPECT_EQ(FromUtf8(bytes), L"") << testing::PrintToString(bytes);
  EXPECT_EQ(T::Utf8ToAnsi("\xED\xA0\x80"), "");
  // The largest code point is still valid.
  EXPECT_EQ(FromUtf8("\xF4\x8F\xBF\xBF"), std::wstring(1, L'\U0010FFFF'));
}

TEST(GStdStringTrans, Utf8EncodesEachUnitByItself) {
  EXPECT_EQ(Own(T::UnicodeToUtf8(L"A\u00E9\u0800\uFFFF")), "A\xC3\xA9\xE0\xA0\x80\xEF\xBF\xBF");
  EXPECT_EQ(Own(T::UnicodeToUtf8(L"\U0001F600")), "\xF0\x9F\x98\x80");
  const wchar_t pair[] = {0xD83D, 0xDE00, 0};
  const std::string separate = Own(T::UnicodeToUtf8(pair));
  EXPECT_EQ(separate, "\xED\xA0\xBD\xED\xB8\x80");
  EXPECT_EQ(FromUtf8(separate), L"");
  const std::wstring mixed = L"x\u00E9\u4E2D\U0001F600y";
  EXPECT_EQ(FromUtf8(Own(T::UnicodeToUtf8(mixed.c_str()))), mixed);
  // Wherever the text starts, and whatever follows its end.
  std::vector<wchar_t> buffer(64, L'\u4E2D');
  for (std::size_t offset = 0; offset < 20; ++offset) {
    std::copy(mixed.c_str(), mixed.c_str() + mixed.size() + 1, buffer.begin() + offset);
    EXPECT_EQ(FromUtf8(Own(T::UnicodeToUtf8(buffer.data() + offset))), mixed) << offset;
  }
}

TEST(GStdStringTrans, ThreadsConvertIndependently) {
  std::vector<std::thread> threads;
  std::vector<int> failures(4, 0);
  for (int& failed : failures)
    threads.emplace_back([&failed] {
      for (int i = 0; i < 200; ++i) {
        failed += T::StringToWString(kChineseGbk) != kChinese;
        failed += T::WstringToString(L"\u00E9", "C.UTF-8") != "\xC3\xA9";
      }
    });
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(failures, std::vector<int>(4, 0));
}

// --- Block paths ----------------------------------------------------------------
//
// Texts long enough for the vector paths, with every kind of unit at every
// place of a block; CTest runs these once per path (ZRN_SIMD).

// Which units a random text holds.
enum class Mix {
  kAll,       // each UTF-8 length equally often
  kUnusual,   // also surrogates and units beyond U+1FFFFF, which do not decode back
  kMostlyBmp, // mostly ASCII, some of two and three bytes, as most real text
};

// A unit of each UTF-8 length, or (with kUnusual) one that is encoded but
// does not decode back.
wchar_t RandomUnit(std::mt19937& random, Mix mix) {
  if (mix == Mix::kMostlyBmp) {
    const auto kind = random() % 8;
    if (kind > 1)
      return static_cast<wchar_t>(0x20 + random() % 0x5F);
    return kind == 0 ? static_cast<wchar_t>(0x80 + random() % 0x780)
                     : static_cast<wchar_t>(0x800 + random() % 0xD000);
  }
  switch (random() % (mix == Mix::kUnusual ? 6 : 4)) {
  case 0:
    return static_cast<wchar_t>(1 + random() % 0x7F);
  case 1:
    return static_cast<wchar_t>(0x80 + random() % 0x780);
  case 2:
    return static_cast<wchar_t>(0xE000 + random() % 0x2000);
  case 3:
    return static_cast<wchar_t>(0x10000 + random() % 0x100000);
  case 4:
    return static_cast<wchar_t>(0xD800 + random() % 0x800);
  default:
    return static_cast<wchar_t>(0x200000 + random() % 0x1000);
  }
}

std::wstring RandomWide(std::mt19937& random, std::size_t length, Mix mix) {
  std::wstring text(length, L'a');
  for (wchar_t& c : text)
    c = RandomUnit(random, mix);
  return text;
}

std::string ToUtf8(std::wstring const& text) { return Own(T::UnicodeToUtf8(text.c_str())); }

// The UTF-8 of each unit of a text by itself (a single unit is too short for
// any block path), joined, with where each unit's bytes start.
struct UnitByUnit {
  std::string bytes;
  std::vector<std::size_t> starts;

  explicit UnitByUnit(std::wstring const& text) {
    for (wchar_t c : text) {
      starts.push_back(bytes.size());
      bytes += ToUtf8(std::wstring(1, c));
    }
    starts.push_back(bytes.size());
  }
  std::string Of(std::size_t from, std::size_t length) const {
    return bytes.substr(starts.at(from), starts.at(from + length) - starts.at(from));
  }
};

TEST(Utf8Blocks, EveryKindOfUnitAtEveryPlaceEncodesUnitByUnit) {
  std::mt19937 random(11);
  for (std::size_t length = 1; length < 200; length += (length < 80 ? 1 : 17))
    for (Mix mix : {Mix::kAll, Mix::kUnusual, Mix::kMostlyBmp}) {
      const std::wstring text = RandomWide(random, length, mix);
      const std::string utf8 = ToUtf8(text);
      ASSERT_EQ(utf8, UnitByUnit(text).bytes) << length;
      if (mix != Mix::kUnusual) {
        ASSERT_EQ(FromUtf8(utf8), text) << length;
      }
    }
  // ASCII alone, and long enough for the one-pass array.
  const std::wstring ascii(70000, L'q');
  EXPECT_EQ(ToUtf8(ascii), std::string(70000, 'q'));
  for (Mix mix : {Mix::kAll, Mix::kMostlyBmp}) {
    const std::wstring large = RandomWide(random, 70000, mix);
    EXPECT_EQ(FromUtf8(ToUtf8(large)), large);
  }
}

TEST(Utf8Blocks, UnitsAtTheLengthBoundariesEncodeAtEveryPlace) {
  std::mt19937 random(14);
  const std::wstring text = RandomWide(random, 70, Mix::kMostlyBmp);
  const wchar_t boundaries[] = {0x7F,
                                0x80,
                                0x7FF,
                                0x800,
                                0xD7FF,
                                0xD800,
                                0xFFFF,
                                0x10000,
                                0x10FFFF,
                                0x1FFFFF,
                                0x200000,
                                static_cast<wchar_t>(0x80000000u),
                                static_cast<wchar_t>(-1)};
  for (wchar_t unit : boundaries) {
    const std::string alone = ToUtf8(std::wstring(1, unit));
    for (std::size_t at = 0; at <= text.size(); ++at) {
      const std::wstring with = text.substr(0, at) + unit + text.substr(at);
      ASSERT_EQ(ToUtf8(with), ToUtf8(text.substr(0, at)) + alone + ToUtf8(text.substr(at)))
          << std::hex << static_cast<std::uint32_t>(unit) << " at " << std::dec << at;
    }
  }
}

// Texts of a few blocks, with characters of every length, and with none
// longer than three bytes (which some paths take on their own).
std::vector<std::wstring> BlockTexts(unsigned seed) {
  std::mt19937 random(seed);
  return {RandomWide(random, 60, Mix::kAll), RandomWide(random, 100, Mix::kMostlyBmp)};
}

TEST(Utf8Blocks, AnInvalidSequenceAnywhereVoidsTheText) {
  for (std::wstring const& text : BlockTexts(12)) {
    const std::string valid = ToUtf8(text);
    ASSERT_GT(valid.size(), 128u);
    for (std::size_t at = 0; at < valid.size(); ++at) {
      std::string broken = valid;
      broken[at] = '\xFF'; // never part of UTF-8
      ASSERT_EQ(FromUtf8(broken), L"") << at;
      // Cut before the end of a sequence, or with one sequence's lead taken away.
      const bool continuation = (static_cast<unsigned char>(valid[at]) & 0xC0) == 0x80;
      if (continuation) {
        ASSERT_EQ(FromUtf8(valid.substr(0, at)), L"") << at;
      } else if (static_cast<unsigned char>(valid[at]) >= 0xC0) {
        broken[at] = 'a';
        ASSERT_EQ(FromUtf8(broken), L"") << at;
      }
      if (continuation)
        continue;
      for (std::string const& sequence : {std::string("\xED\xA0\x80"),          // a surrogate
                                          std::string("\xED\xBF\xBF"),          // the last one
                                          std::string("\xF0\x8D\xA0\x80"),      // one, overlong
                                          std::string("\xF4\x90\x80\x80"),      // beyond U+10FFFF
                                          std::string("\xF8\x88\x80\x80\x80")}) // 5 bytes
        ASSERT_EQ(FromUtf8(valid.substr(0, at) + sequence + valid.substr(at)), L"") << at;
      // Characters next to those stay valid.
      ASSERT_EQ(FromUtf8(valid.substr(0, at) + "\xED\x9F\xBF\xEE\x80\x80" + valid.substr(at)),
                FromUtf8(valid.substr(0, at)) + L"\uD7FF\uE000" + FromUtf8(valid.substr(at)))
          << at;
    }
  }
}

TEST(Utf8Blocks, AnOverlongZeroEndsTheTextWherever) {
  for (std::wstring const& text : BlockTexts(13)) {
    const std::string valid = ToUtf8(text);
    std::size_t units = 0;
    for (std::size_t at = 0; at <= valid.size(); ++at) {
      if (at == valid.size() || (static_cast<unsigned char>(valid[at]) & 0xC0) != 0x80) {
        const std::string zeroed = valid.substr(0, at) + "\xC0\x80" + valid.substr(at);
        ASSERT_EQ(FromUtf8(zeroed), text.substr(0, units)) << at;
        // Invalid bytes after the zero still void the text.
        ASSERT_EQ(FromUtf8(zeroed + "\x80"), L"") << at;
        // A three-byte zero too, and an overlong form that is not zero.
        ASSERT_EQ(FromUtf8(valid.substr(0, at) + "\xE0\x80\x80" + valid.substr(at)),
                  text.substr(0, units))
            << at;
        ASSERT_EQ(FromUtf8(valid.substr(0, at) + "\xC1\x81" + valid.substr(at)),
                  text.substr(0, units) + L"A" + text.substr(units))
            << at;
        ++units;
      }
    }
  }
}

TEST(Utf8Blocks, TheTerminatorEndsTheTextAtEveryPlaceOfABlock) {
  std::mt19937 random(15);
  for (Mix mix : {Mix::kUnusual, Mix::kMostlyBmp}) {
    // Units go on after the terminator: none of them may be encoded.
    const std::wstring text = RandomWide(random, 100, mix);
    const UnitByUnit expected(text);
    // Sixteen starting places cover every unit of a 64-byte block.
    for (std::size_t offset = 0; offset < 16; ++offset)
      for (std::size_t length = 0; length <= 64; ++length) {
        std::wstring buffer = text;
        buffer[offset + length] = L'\0';
        ASSERT_EQ(Own(T::UnicodeToUtf8(buffer.c_str() + offset)), expected.Of(offset, length))
            << offset << " " << length;
      }
  }
}

TEST(Utf8Blocks, LongTextsEndAnywhereAroundTheSizesWhereTheirArrayGrows) {
  std::mt19937 random(16);
  // The first 4096 units are encoded on the stack, then the array grows to
  // eight times the units read; results below 2^18 bytes (as the ASCII ones
  // around there) are copied to an array of their size.
  for (std::size_t step : {std::size_t{4096}, std::size_t{32768}, std::size_t{262144}})
    for (Mix mix : {Mix::kAll, Mix::kMostlyBmp}) {
      // Long enough for the last offset and length below.
      const std::wstring text = std::wstring(step - 20, L'a') + RandomWide(random, 80, mix);
      const UnitByUnit expected(text);
      for (std::size_t offset : {0, 3, 30})
        for (std::size_t length = step - 40; length <= step + 20; length += 3)
          ASSERT_EQ(ToUtf8(text.substr(offset, length)), expected.Of(offset, length))
              << step << " " << offset << " " << length;
    }
}

} // namespace
} // namespace zrn
