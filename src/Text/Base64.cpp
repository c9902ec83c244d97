#include <zrn/Text/Base64.h>

#include "Platform/Simd.h"
#include "Text/Base64Kernels.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

namespace {

// Results are built a chunk at a time in a buffer on the stack and appended
// to a string reserved once: the string's memory is written once, never
// zero-filled first. A chunk is this many groups of three bytes and four
// characters.
constexpr std::size_t kChunkGroups = 1024;
constexpr std::size_t kChunkBytes = 3 * kChunkGroups;
constexpr std::size_t kChunkChars = 4 * kChunkGroups;
// Room beyond a decoded chunk for the vector path's last store.
constexpr std::size_t kDecodeSlack = 8;

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

bool UseAvx2() {
#if defined(ZRN_BASE64_X86_KERNELS)
  return zrn::platform::ActiveSimdLevel() >= zrn::platform::SimdLevel::kAvx2;
#else
  return false;
#endif
}

// Encodes the `size` bytes at `in`, a multiple of three, into `out`.
char* EncodeGroups(unsigned char const* in, std::size_t size, char* out, bool avx2) {
  std::size_t i = 0;
#if defined(ZRN_BASE64_X86_KERNELS)
  if (avx2)
    i = zrn::detail::EncodeBase64Avx2(in, size, out);
#endif
  for (; i < size; i += 3)
    out = EncodeGroup((std::uint32_t{in[i]} << 16) | (std::uint32_t{in[i + 1]} << 8) | in[i + 2],
                      out);
  return out;
}

// Decodes the groups of four characters at `in`, `size` a multiple of four,
// up to the first group with a character outside the alphabet. Returns the
// characters decoded.
std::size_t DecodeGroups(unsigned char const* in, std::size_t size, char*& out, bool avx2) {
  std::size_t i = 0;
#if defined(ZRN_BASE64_X86_KERNELS)
  if (avx2)
    i = zrn::detail::DecodeBase64Avx2(in, size, out);
#endif
  for (; i < size; i += 4) {
    const std::uint32_t bits =
        kDecode[0][in[i]] | kDecode[1][in[i + 1]] | kDecode[2][in[i + 2]] | kDecode[3][in[i + 3]];
    if (bits & kForeign)
      break;
    out[0] = static_cast<char>(bits >> 16);
    out[1] = static_cast<char>(bits >> 8);
    out[2] = static_cast<char>(bits);
    out += 3;
  }
  return i;
}

} // namespace

std::string base64_encode(unsigned char const* data, unsigned int length) {
  std::string text;
  text.reserve((static_cast<std::size_t>(length) + 2) / 3 * 4);
  const bool avx2 = UseAvx2();
  char chunk[kChunkChars];
  std::size_t i = 0;
  while (length - i >= 3) {
    const std::size_t size = std::min<std::size_t>(length - i, kChunkBytes) / 3 * 3;
    text.append(chunk, EncodeGroups(data + i, size, chunk, avx2));
    i += size;
  }
  const std::size_t left = length - i;
  if (left > 0) {
    std::uint32_t bits = std::uint32_t{data[i]} << 16;
    if (left == 2)
      bits |= std::uint32_t{data[i + 1]} << 8;
    char* const end = EncodeGroup(bits, chunk);
    end[-1] = '=';
    if (left == 1)
      end[-2] = '=';
    text.append(chunk, 4);
  }
  return text;
}

std::string base64_decode(std::string const& text) {
  auto const* in = reinterpret_cast<unsigned char const*>(text.data());
  const std::size_t size = text.size();
  std::string bytes;
  bytes.reserve(size / 4 * 3 + 2);
  const bool avx2 = UseAvx2();
  char chunk[kChunkBytes + kDecodeSlack];
  std::size_t i = 0;
  for (;;) {
    const std::size_t whole = std::min(size - i, kChunkChars) / 4 * 4;
    char* out = chunk;
    const std::size_t done = DecodeGroups(in + i, whole, out, avx2);
    bytes.append(chunk, out);
    i += done;
    if (done < whole || whole == 0)
      break;
  }
  bytes.append(chunk, DecodeTail(in + i, size - i, chunk));
  return bytes;
}
