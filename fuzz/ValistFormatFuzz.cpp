// Feeds arbitrary formats and arguments to ValistStream: whatever the format
// asks for, formatting must stay inside the slots, the pool and the buffer.
//
// Input: a byte with the number of arguments (low 4 bits), then per argument a
// kind byte followed by 8 value bytes (numbers) or a length byte and the
// characters (strings); the rest is the format.
#include <zrn/Profile/ValistStream.h>

#include <cstdint>
#include <cstring>
#include <string>

namespace {

class Reader {
public:
  Reader(std::uint8_t const* data, std::size_t size) : m_p(data), m_end(data + size) {}

  bool Empty() const { return m_p == m_end; }
  std::uint8_t Byte() { return Empty() ? 0 : *m_p++; }

  unsigned long long Word() {
    unsigned long long value = 0;
    const std::size_t n = std::min<std::size_t>(8, static_cast<std::size_t>(m_end - m_p));
    std::memcpy(&value, m_p, n);
    m_p += n;
    return value;
  }

  std::string Bytes(std::size_t n) {
    n = std::min(n, static_cast<std::size_t>(m_end - m_p));
    std::string text(reinterpret_cast<char const*>(m_p), n);
    m_p += n;
    return text;
  }

  std::string Rest() { return Bytes(static_cast<std::size_t>(m_end - m_p)); }

private:
  std::uint8_t const* m_p;
  std::uint8_t const* m_end;
};

void AppendArgument(zrn::ValistStream& stream, Reader& in) {
  switch (in.Byte() % 5) {
  case 0:
    stream.AppendInteger(static_cast<long long>(in.Word()));
    break;
  case 1:
    stream.AppendUnsigned(in.Word());
    break;
  case 2: {
    const unsigned long long bits = in.Word();
    double value;
    std::memcpy(&value, &bits, sizeof value);
    stream.AppendDouble(value);
    break;
  }
  case 3:
    stream.AppendPointer(reinterpret_cast<void const*>(in.Word()));
    break;
  default:
    stream.AppendString(in.Bytes(in.Byte()));
    break;
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  Reader in(data, size);
  zrn::ValistStream stream;
  const int count = in.Byte() & 0x0F;
  for (int i = 0; i < count; ++i)
    AppendArgument(stream, in);
  const std::string format = in.Rest(); // c_str() ends it at its first NUL

  char buffer[2048];
  stream.Format(format.c_str(), buffer, sizeof buffer);
  stream.Resolve();
  const std::size_t n = stream.Format(format.c_str(), buffer, sizeof buffer);
  if (n >= sizeof buffer || buffer[n] != '\0')
    __builtin_trap();
  char tiny[5];
  stream.Format(format.c_str(), tiny, sizeof tiny);
  return 0;
}
