#include "InspectPrinter.h"

#include <algorithm>
#include <charconv>

namespace zrn::inspect {

namespace {

constexpr char kHex[] = "0123456789abcdef";
// Leaf bytes per line of the full view.
constexpr std::size_t kLineBytes = 16;

void AppendHexByte(std::string& out, unsigned char byte) {
  out.push_back(kHex[byte >> 4]);
  out.push_back(kHex[byte & 15]);
}

// The length of the well-formed UTF-8 sequence at the start of `text`, or 0.
std::size_t Utf8Length(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(0);
  std::size_t length = 0;
  unsigned char low = 0x80, high = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF)
    length = 2;
  else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    low = lead == 0xE0 ? 0xA0 : 0x80;
    high = lead == 0xED ? 0x9F : 0xBF; // no surrogates
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    low = lead == 0xF0 ? 0x90 : 0x80;
    high = lead == 0xF4 ? 0x8F : 0xBF;
  }
  if (length == 0 || text.size() < length || byte(1) < low || byte(1) > high)
    return 0;
  for (std::size_t i = 2; i < length; ++i)
    if ((byte(i) & 0xC0) != 0x80)
      return 0;
  return length;
}

// `text` with quotes, backslashes and control characters escaped as `\x`
// codes (text view) or `\u` codes (JSON); bytes that are not UTF-8 are
// escaped the same way, so that the output is always valid UTF-8.
void Escape(std::string& out, std::string_view text, bool json) {
  for (std::size_t i = 0; i < text.size();) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c == '"' || c == '\\') {
      out.push_back('\\');
      out.push_back(static_cast<char>(c));
      ++i;
      continue;
    }
    if (c >= 0x20 && c < 0x7F) {
      out.push_back(static_cast<char>(c));
      ++i;
      continue;
    }
    if (const std::size_t length = c >= 0x80 ? Utf8Length(text.substr(i)) : 0) {
      out.append(text.substr(i, length));
      i += length;
      continue;
    }
    out += json ? "\\u00" : "\\x";
    AppendHexByte(out, c);
    ++i;
  }
}

} // namespace

// --- Output --------------------------------------------------------------------------------

COutput& COutput::operator<<(long long value) {
  char digits[24];
  const auto done = std::to_chars(digits, digits + sizeof digits, value);
  return *this << std::string_view(digits, static_cast<std::size_t>(done.ptr - digits));
}

bool COutput::Flush() {
  if (!m_buffer.empty() &&
      std::fwrite(m_buffer.data(), 1, m_buffer.size(), m_pFile) != m_buffer.size())
    m_bFailed = true;
  m_buffer.clear();
  if (std::fflush(m_pFile) != 0)
    m_bFailed = true;
  return !m_bFailed;
}

// --- Text ----------------------------------------------------------------------------------

void CTextPrinter::Indent() {
  static constexpr std::string_view kBlanks = "                                                  ";
  for (std::size_t left = static_cast<std::size_t>(m_nDepth) * 2; left > 0;) {
    const std::size_t n = std::min(left, kBlanks.size());
    m_out << kBlanks.substr(0, n);
    left -= n;
  }
}

void CTextPrinter::BeginObject(sArchiveObject const& object) {
  Indent();
  m_out << "object @" << object.offset << " v" << static_cast<long long>(object.version) << ", "
        << static_cast<long long>(object.blockCount)
        << (object.blockCount == 1 ? " block" : " blocks");
  if (object.name)
    m_out << " (" << object.name << ')';
  m_out << '\n';
  ++m_nDepth;
}

void CTextPrinter::EndObject(long long) { --m_nDepth; }

void CTextPrinter::BeginBlock(sArchiveBlock const& block) {
  Indent();
  m_out << "block @" << block.offset << " tag " << static_cast<long long>(block.tag) << ", "
        << static_cast<long long>(block.size) << " bytes";
  if (block.truncated)
    m_out << " (cut short)";
  m_out << '\n';
  ++m_nDepth;
}

void CTextPrinter::EndBlock(long long) { --m_nDepth; }

void CTextPrinter::HexLine(long long offset, std::string_view bytes, std::size_t columns) {
  std::string& line = m_line;
  line.clear();
  if (offset >= 0) {
    line += '@';
    char digits[24];
    line.append(digits, std::to_chars(digits, digits + sizeof digits, offset).ptr);
    line += "  ";
  }
  for (std::size_t i = 0; i < columns; ++i) {
    if (i < bytes.size())
      AppendHexByte(line, static_cast<unsigned char>(bytes[i]));
    else
      line += "  ";
    line += ' ';
  }
  line += '|';
  for (const char c : bytes)
    line += c >= 0x20 && c < 0x7F ? c : '.';
  line += '|';
  m_out << line;
}

void CTextPrinter::Leaf(sArchiveLeaf const& leaf) {
  if (!m_options.full) {
    if (leaf.at > 0)
      return;
    const std::string_view bytes = leaf.bytes.substr(0, m_options.width);
    Indent();
    m_out << "data @" << leaf.offset << ", " << static_cast<long long>(leaf.size) << " bytes";
    if (!bytes.empty()) {
      m_out << ": ";
      HexLine(-1, bytes, bytes.size());
      if (bytes.size() < leaf.size)
        m_out << " ...";
    }
    m_out << '\n';
    return;
  }
  if (leaf.at == 0) {
    Indent();
    m_out << "data @" << leaf.offset << ", " << static_cast<long long>(leaf.size) << " bytes\n";
  }
  for (std::size_t i = 0; i < leaf.bytes.size(); i += kLineBytes) {
    Indent();
    m_out << "  ";
    HexLine(leaf.offset + static_cast<long long>(leaf.at + i), leaf.bytes.substr(i, kLineBytes),
            kLineBytes);
    m_out << '\n';
  }
}

void CTextPrinter::Part(sArchiveNamed const& part) {
  Indent();
  std::string& line = m_line;
  line = part.name;
  const bool showsId = part.id >= 0 && part.dataType == -1 && part.typeName == nullptr;
  if (part.typeName) {
    line += ' ' + std::to_string(part.id) + ": " + part.typeName;
    if (part.dataType >= 1000 && std::string_view(part.typeName) == "custom")
      line += '(' + std::to_string(part.dataType) + ')';
  } else if (showsId) {
    line += ' ' + std::to_string(part.id);
  }
  if (part.quoted || !part.text.empty()) {
    line += ' ';
    if (part.quoted)
      line += '"';
    Escape(line, part.text, false);
    if (part.quoted)
      line += '"';
    if (part.textCut)
      line += " ...";
  }
  m_out << line << '\n';
}

void CTextPrinter::BeginNamed(sArchiveNamed const& part) {
  Part(part);
  ++m_nDepth;
}

void CTextPrinter::EndNamed(long long) { --m_nDepth; }

void CTextPrinter::Named(sArchiveNamed const& part) { Part(part); }

void CTextPrinter::Stopped(long long at, std::string const& why) {
  m_out << "stopped at offset " << at << ": " << why << '\n';
}

// --- JSON ----------------------------------------------------------------------------------

void CJsonPrinter::String(std::string_view text) {
  m_scratch = '"';
  Escape(m_scratch, text, true);
  m_scratch += '"';
  m_out << m_scratch;
}

void CJsonPrinter::Item(char const* kind) {
  if (m_bHasItem)
    m_out << ',';
  m_bHasItem = true;
  m_out << "{\"kind\":\"" << kind << '"';
}

void CJsonPrinter::OpenItems() {
  m_out << ",\"items\":[";
  m_bHasItem = false;
}

void CJsonPrinter::Close(long long end) {
  m_out << "],\"end\":" << end << "}\n";
  m_bHasItem = true;
}

void CJsonPrinter::Begin() {
  m_out << "{\"items\":[\n";
  m_bHasItem = false;
}

void CJsonPrinter::End(long long size, bool complete, long long stoppedAt,
                       std::string const& error) {
  m_out << "],\"size\":" << size << ",\"complete\":" << (complete ? "true" : "false")
        << ",\"stoppedAt\":";
  if (complete) {
    m_out << "null,\"error\":null}\n";
    return;
  }
  m_out << stoppedAt << ",\"error\":";
  String(error);
  m_out << "}\n";
}

void CJsonPrinter::BeginObject(sArchiveObject const& object) {
  Item("object");
  m_out << ",\"offset\":" << object.offset
        << ",\"version\":" << static_cast<long long>(object.version)
        << ",\"blocks\":" << static_cast<long long>(object.blockCount);
  if (object.name) {
    m_out << ",\"name\":";
    String(object.name);
  }
  OpenItems();
}

void CJsonPrinter::EndObject(long long end) { Close(end); }

void CJsonPrinter::BeginBlock(sArchiveBlock const& block) {
  Item("block");
  m_out << ",\"offset\":" << block.offset << ",\"tag\":" << static_cast<long long>(block.tag)
        << ",\"size\":" << static_cast<long long>(block.size)
        << ",\"truncated\":" << (block.truncated ? "true" : "false");
  OpenItems();
}

void CJsonPrinter::EndBlock(long long end) { Close(end); }

void CJsonPrinter::Leaf(sArchiveLeaf const& leaf) {
  // Cut to the width, a leaf comes in one piece; in full, in as many as it takes.
  const std::string_view bytes =
      m_options.full ? leaf.bytes : leaf.bytes.substr(0, m_options.width);
  if (!m_options.full && leaf.at > 0)
    return;
  if (leaf.at == 0) {
    Item("data");
    m_out << ",\"offset\":" << leaf.offset << ",\"size\":" << static_cast<long long>(leaf.size)
          << ",\"hex\":\"";
  }
  m_scratch.clear();
  for (const char c : bytes)
    AppendHexByte(m_scratch, static_cast<unsigned char>(c));
  m_out << m_scratch;
  const unsigned long long shown = leaf.at + bytes.size();
  if (!m_options.full || shown >= leaf.size)
    m_out << "\",\"cut\":" << (shown < leaf.size ? "true" : "false") << "}\n";
}

void CJsonPrinter::Fields(sArchiveNamed const& part) {
  Item("named");
  m_out << ",\"name\":";
  String(part.name);
  m_out << ",\"offset\":" << part.offset << ",\"size\":" << static_cast<long long>(part.size)
        << ",\"id\":" << part.id;
  if (part.typeName) {
    m_out << ",\"type\":" << static_cast<long long>(part.dataType) << ",\"typeName\":";
    String(part.typeName);
  }
  m_out << ",\"value\":";
  String(part.text);
  m_out << ",\"cut\":" << (part.textCut ? "true" : "false");
}

void CJsonPrinter::BeginNamed(sArchiveNamed const& part) {
  Fields(part);
  OpenItems();
}

void CJsonPrinter::EndNamed(long long end) { Close(end); }

void CJsonPrinter::Named(sArchiveNamed const& part) {
  Fields(part);
  m_out << "}\n";
}

} // namespace zrn::inspect
