// Base64 both ways, on every length around the blocks the vector paths take.
#include <zrn/Text/Base64.h>

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <utility>
#include <vector>

namespace zrn {
namespace {

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
