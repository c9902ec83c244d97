// The printf-style formatter over a ValistStream's 8-byte slots.
//
// Each directive is parsed here and rebuilt as a small, well-formed format
// for one typed value, which the C library then prints straight into the
// remaining room of the output buffer. Nothing is read beyond the slots and
// the pool, and nothing is written beyond the buffer. Numbers are written as
// in the C locale whatever the process locale, so that a message reads the
// same everywhere.
#include <zrn/Profile/ValistStream.h>

#include "Platform/NumericLocale.h"

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace zrn {

namespace {

// Width and precision beyond the whole buffer cannot change what fits in it;
// capping them keeps the C library from padding millions of characters.
constexpr int kMaxFieldSize = 4096;

// Room for "%", five flags, "-*.*ll", a conversion and the NUL.
constexpr std::size_t kPatternSize = 24;

class Output {
public:
  Output(char* buffer, std::size_t size) : m_buffer(buffer), m_size(size) {
    if (m_size)
      m_buffer[0] = '\0';
  }

  std::size_t Length() const { return m_length; }

  void Append(char const* text, std::size_t length) {
    if (m_size == 0)
      return;
    const std::size_t room = m_size - 1 - m_length;
    const std::size_t n = std::min(room, length);
    std::memcpy(m_buffer + m_length, text, n);
    m_length += n;
    m_buffer[m_length] = '\0';
  }

  // `format` is one directive rebuilt by ValistFormatter::Rebuild from parsed
  // parts, with its width and precision passed as arguments, never caller text.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  void Print(char const* format, ...) {
    if (m_size == 0 || m_length + 1 >= m_size)
      return;
    va_list args;
    va_start(args, format);
    const int n = std::vsnprintf(m_buffer + m_length, m_size - m_length, format, args);
    va_end(args);
    if (n > 0)
      m_length = std::min(m_length + static_cast<std::size_t>(n), m_size - 1);
    else
      m_buffer[m_length] = '\0';
  }
#pragma GCC diagnostic pop

private:
  char* m_buffer;
  std::size_t m_size;
  std::size_t m_length = 0;
};

// One parsed conversion: "%" flags width .precision length conversion.
struct Conversion {
  char flags[6] = {};
  int width = 0;
  int precision = -1;
  enum class Size { Int, Char, Short, Long64, Int32 } size = Size::Int;
  char conversion = 0;
};

bool IsFlag(char c) { return c == '-' || c == '+' || c == ' ' || c == '#' || c == '0'; }

} // namespace

/// Walks one format over one stream.
class ValistFormatter {
public:
  ValistFormatter(ValistStream const& stream, char const* format, Output& out)
      : m_stream(stream), m_p(format), m_out(out) {}

  void Run() {
    while (*m_p) {
      char const* const literal = m_p;
      while (*m_p && *m_p != '%')
        ++m_p;
      m_out.Append(literal, static_cast<std::size_t>(m_p - literal));
      if (*m_p == '%')
        HandleDirective();
    }
  }

private:
  void HandleDirective() {
    char const* const start = m_p++;
    const std::size_t firstSlot = m_nextSlot;
    m_bLeftFromStar = false;
    Conversion d;
    if (!Parse(d) || !Emit(d)) {
      // Unknown, unfinished or short of arguments: show it as written.
      m_nextSlot = firstSlot;
      m_out.Append(start, static_cast<std::size_t>(m_p - start));
    }
  }

  bool Parse(Conversion& d) {
    std::size_t nFlags = 0;
    while (IsFlag(*m_p)) {
      if (nFlags < sizeof d.flags - 1 && !std::strchr(d.flags, *m_p))
        d.flags[nFlags++] = *m_p;
      ++m_p;
    }
    if (!ParseNumber(d.width, true))
      return false;
    if (*m_p == '.') {
      ++m_p;
      d.precision = 0;
      if (!ParseNumber(d.precision, false))
        return false;
    }
    ParseSize(d);
    if (!*m_p)
      return false;
    d.conversion = *m_p++;
    return true;
  }

  // Digits or "*" (an int taken from the next slot). A negative width from
  // "*" means left alignment; a negative precision means none.
  bool ParseNumber(int& value, bool isWidth) {
    if (*m_p == '*') {
      ++m_p;
      if (!HasSlot())
        return false;
      value = static_cast<int>(static_cast<std::int32_t>(m_stream.SlotBits(m_nextSlot++)));
      if (isWidth && value < 0) {
        value = value == INT32_MIN ? kMaxFieldSize : -value;
        m_bLeftFromStar = true;
      }
      if (!isWidth && value < 0)
        value = -1;
    } else {
      long long n = 0;
      while (*m_p >= '0' && *m_p <= '9') {
        n = std::min<long long>(n * 10 + (*m_p - '0'), kMaxFieldSize);
        ++m_p;
      }
      value = static_cast<int>(n);
    }
    value = std::min(value, kMaxFieldSize);
    return true;
  }

  void ParseSize(Conversion& d) {
    using Size = Conversion::Size;
    auto next = [this](char const* prefix) {
      const std::size_t n = std::strlen(prefix);
      if (std::strncmp(m_p, prefix, n) != 0)
        return false;
      m_p += n;
      return true;
    };
    if (next("hh"))
      d.size = Size::Char;
    else if (next("h"))
      d.size = Size::Short;
    else if (next("ll") || next("l") || next("I64") || next("j") || next("z") || next("t"))
      d.size = Size::Long64;
    else if (next("I32"))
      d.size = Size::Int32;
    else if (next("I"))
      d.size = Size::Long64;
    else if (next("L") || next("w"))
      d.size = Size::Int;
  }

  bool HasSlot() const { return m_nextSlot < m_stream.ArgumentCount(); }

  // Builds "%<flags>*.*<length><conversion>" for one value.
  void Rebuild(Conversion const& d, char const* length, char conversion, char* pattern) {
    std::snprintf(pattern, kPatternSize, "%%%s%s*.*%s%c", d.flags, m_bLeftFromStar ? "-" : "",
                  length, conversion);
  }

  bool Emit(Conversion const& d) {
    if (d.conversion == '%') {
      m_out.Append("%", 1);
      return true;
    }
    if (!std::strchr("diuxXocspfFeEgGaA", d.conversion))
      return false;
    if (!HasSlot())
      return false;
    const std::size_t slot = m_nextSlot++;
    switch (d.conversion) {
    case 'd':
    case 'i':
    case 'u':
    case 'x':
    case 'X':
    case 'o':
      EmitInteger(d, slot);
      break;
    case 'c':
      EmitChar(d, slot);
      break;
    case 's':
      EmitString(d, slot);
      break;
    case 'p':
      EmitPointer(d, slot);
      break;
    default:
      EmitDouble(d, slot);
      break;
    }
    return true;
  }

  // The slot cut to the conversion's size, sign-extended for %d and %i.
  static unsigned long long SizedBits(unsigned long long bits, Conversion::Size size,
                                      bool isSigned) {
    const int width = size == Conversion::Size::Char     ? 8
                      : size == Conversion::Size::Short  ? 16
                      : size == Conversion::Size::Long64 ? 64
                                                         : 32;
    if (width == 64)
      return bits;
    const unsigned long long mask = (1ULL << width) - 1;
    bits &= mask;
    if (isSigned && ((bits >> (width - 1)) & 1))
      bits |= ~mask;
    return bits;
  }

  void EmitInteger(Conversion const& d, std::size_t slot) {
    const bool isSigned = d.conversion == 'd' || d.conversion == 'i';
    const unsigned long long bits = SizedBits(m_stream.SlotBits(slot), d.size, isSigned);
    char pattern[kPatternSize];
    Rebuild(d, "ll", d.conversion, pattern);
    if (isSigned)
      m_out.Print(pattern, d.width, d.precision, static_cast<long long>(bits));
    else
      m_out.Print(pattern, d.width, d.precision, bits);
  }

  void EmitChar(Conversion const& d, std::size_t slot) {
    const char c = static_cast<char>(m_stream.SlotBits(slot));
    EmitText(d, std::string_view(&c, 1), -1);
  }

  void EmitString(Conversion const& d, std::size_t slot) {
    std::string_view text;
    if (m_stream.IsStringSlot(slot * ValistStream::kSlotSize))
      text = m_stream.StringAt(slot);
    else
      text = m_stream.SlotBits(slot) == 0 ? "(null)" : "(?)";
    EmitText(d, text, d.precision);
  }

  void EmitPointer(Conversion const& d, std::size_t slot) {
    char digits[17];
    std::snprintf(digits, sizeof digits, "%016llX", m_stream.SlotBits(slot));
    EmitText(d, digits, -1);
  }

  // Text (not necessarily NUL-terminated) padded to the width.
  void EmitText(Conversion const& d, std::string_view text, int precision) {
    if (precision >= 0 && static_cast<std::size_t>(precision) < text.size())
      text = text.substr(0, static_cast<std::size_t>(precision));
    const bool left = m_bLeftFromStar || std::strchr(d.flags, '-');
    const std::size_t pad =
        static_cast<std::size_t>(d.width) > text.size() ? d.width - text.size() : 0;
    static constexpr char kBlanks[] = "                                ";
    auto padding = [&] {
      for (std::size_t left_to_pad = pad; left_to_pad > 0;) {
        const std::size_t n = std::min(left_to_pad, sizeof kBlanks - 1);
        m_out.Append(kBlanks, n);
        left_to_pad -= n;
      }
    };
    if (!left)
      padding();
    m_out.Append(text.data(), text.size());
    if (left)
      padding();
  }

  void EmitDouble(Conversion const& d, std::size_t slot) {
    const unsigned long long bits = m_stream.SlotBits(slot);
    double value;
    std::memcpy(&value, &bits, sizeof value);
    char pattern[kPatternSize];
    Rebuild(d, "", d.conversion, pattern);
    m_out.Print(pattern, d.width, d.precision, value);
  }

  ValistStream const& m_stream;
  char const* m_p;
  Output& m_out;
  std::size_t m_nextSlot = 0;
  bool m_bLeftFromStar = false;
};

std::size_t ValistStream::Format(char const* format, char* buffer, std::size_t size) const {
  Output out(buffer, size);
  if (format) {
    const platform::ClassicNumbers numbers;
    ValistFormatter(*this, format, out).Run();
  }
  return out.Length();
}

} // namespace zrn
