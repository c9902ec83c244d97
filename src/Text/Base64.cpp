#include <zrn/Text/Base64.h>

#include <array>
#include <cstdint>
#include <cstring>

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// The two characters of every 12-bit value: three bytes become four
// characters in two lookups.
constexpr std::array<std::array<char, 2>, 4096> MakePairTable() {
  std::array<std::array<char, 2>, 4096> table{};
  for (std::size_t v = 0; v < table.size(); ++v)
    table[v] = {kAlphabet[v >> 6], kAlphabet[v & 0x3F]};
  return table;
}
constexpr auto kPairs = MakePairTable();

// Decoding: the six bits of each character already shifted into place for
// its position in a group of four, so that a group is four lookups OR-ed.
// Characters outside the alphabet set high bits that no valid group has.
constexpr std::uint32_t kForeign = 0xFF000000;

constexpr std::array<std::array<std::uint32_t, 256>, 4> MakeDecodeTables() {
  std::array<std::array<std::uint32_t, 256>, 4> tables{};
  for (auto& table : tables)
    table.fill(kForeign);
  for (std::uint32_t v = 0; v < 64; ++v) {
    const auto c = static_cast<unsigned char>(kAlphabet[v]);
    for (std::size_t position = 0; position < 4; ++position)
      tables[position][c] = v << (6 * (3 - position));
  }
  return tables;
}
constexpr auto kDecode = MakeDecodeTables();

char* EncodeGroup(std::uint32_t bits, char* out) {
  std::memcpy(out, kPairs[bits >> 12].data(), 2);
  std::memcpy(out + 2, kPairs[bits & 0xFFF].data(), 2);
  return out + 4;
}

// Decodes the characters of a final, partial group: those before the first
// foreign one, of at most `size`. Returns the end of the output.
char* DecodeTail(unsigned char const* in, std::size_t size, char* out) {
  std::uint32_t bits = 0;
  std::size_t count = 0;
  for (; count < size && count < 4; ++count) {
    const std::uint32_t value = kDecode[count][in[count]];
    if (value & kForeign)
      break;
    bits |= value;
  }
  // Two characters carry one whole byte, three carry two.
  if (count >= 2)
    *out++ = static_cast<char>(bits >> 16);
  if (count >= 3)
    *out++ = static_cast<char>(bits >> 8);
  return out;
}

} // namespace

std::string base64_encode(unsigned char const* data, unsigned int length) {
  std::string text((static_cast<std::size_t>(length) + 2) / 3 * 4, '\0');
  char* out = text.data();
  std::size_t i = 0;
  for (; i + 3 <= length; i += 3)
    out = EncodeGroup(
        (std::uint32_t{data[i]} << 16) | (std::uint32_t{data[i + 1]} << 8) | data[i + 2], out);
  const std::size_t left = length - i;
  if (left > 0) {
    std::uint32_t bits = std::uint32_t{data[i]} << 16;
    if (left == 2)
      bits |= std::uint32_t{data[i + 1]} << 8;
    out = EncodeGroup(bits, out);
    out[-1] = '=';
    if (left == 1)
      out[-2] = '=';
  }
  return text;
}

std::string base64_decode(std::string const& text) {
  auto const* in = reinterpret_cast<unsigned char const*>(text.data());
  const std::size_t size = text.size();
  std::string bytes(size / 4 * 3 + 2, '\0');
  char* const begin = bytes.data();
  char* out = begin;
  std::size_t i = 0;
  for (; i + 4 <= size; i += 4) {
    const std::uint32_t bits =
        kDecode[0][in[i]] | kDecode[1][in[i + 1]] | kDecode[2][in[i + 2]] | kDecode[3][in[i + 3]];
    if (bits & kForeign)
      break;
    out[0] = static_cast<char>(bits >> 16);
    out[1] = static_cast<char>(bits >> 8);
    out[2] = static_cast<char>(bits);
    out += 3;
  }
  out = DecodeTail(in + i, size - i, out);
  bytes.resize(static_cast<std::size_t>(out - begin));
  return bytes;
}
