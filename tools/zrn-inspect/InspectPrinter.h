// The two forms zrn-inspect prints a stream's structure in: indented text
// for people and JSON for scripts (docs/INSPECT.md describes both).
#ifndef ZRN_TOOLS_INSPECT_INSPECTPRINTER_H
#define ZRN_TOOLS_INSPECT_INSPECTPRINTER_H

#include <zrn/IO/ArchiveReader.h>

#include <cstdio>
#include <string>
#include <string_view>

namespace zrn::inspect {

/// Buffered output to a C stream: written in large pieces, never per line.
class COutput {
public:
  explicit COutput(std::FILE* file) : m_pFile(file) { m_buffer.reserve(kFlushAt + 4096); }
  ~COutput() { Flush(); }
  COutput(COutput const&) = delete;
  COutput& operator=(COutput const&) = delete;

  COutput& operator<<(std::string_view text) {
    m_buffer.append(text);
    if (m_buffer.size() >= kFlushAt)
      Flush();
    return *this;
  }
  COutput& operator<<(char c) {
    m_buffer.push_back(c);
    return *this;
  }
  COutput& operator<<(long long value);
  /// Writes what is buffered; false once anything failed to be written.
  bool Flush();

private:
  static constexpr std::size_t kFlushAt = 1 << 20;
  std::FILE* m_pFile;
  std::string m_buffer;
  bool m_bFailed = false;
};

/// What the printers show of leaf data.
struct sPrintOptions {
  unsigned long long width = 16; ///< leaf bytes shown (when not full)
  bool full = false;             ///< every leaf byte, 16 to a line
};

/// The tree as indented text, two blanks per level.
class CTextPrinter : public IArchiveVisitor {
public:
  CTextPrinter(COutput& out, sPrintOptions options) : m_out(out), m_options(options) {}

  void BeginObject(sArchiveObject const& object) override;
  void EndObject(long long end) override;
  void BeginBlock(sArchiveBlock const& block) override;
  void EndBlock(long long end) override;
  void Leaf(sArchiveLeaf const& leaf) override;
  void BeginNamed(sArchiveNamed const& part) override;
  void EndNamed(long long end) override;
  void Named(sArchiveNamed const& part) override;
  /// The closing line when reading stopped early.
  void Stopped(long long at, std::string const& why);

private:
  void Indent();
  void Part(sArchiveNamed const& part);
  void HexLine(long long offset, std::string_view bytes, std::size_t columns);

  COutput& m_out;
  sPrintOptions m_options;
  int m_nDepth = 0;
  std::string m_line; // reused for every line
};

/// The tree as one JSON document.
class CJsonPrinter : public IArchiveVisitor {
public:
  CJsonPrinter(COutput& out, sPrintOptions options) : m_out(out), m_options(options) {}

  /// Opens the document.
  void Begin();
  /// Closes it with the stream's size and the outcome.
  void End(long long size, bool complete, long long stoppedAt, std::string const& error);

  void BeginObject(sArchiveObject const& object) override;
  void EndObject(long long end) override;
  void BeginBlock(sArchiveBlock const& block) override;
  void EndBlock(long long end) override;
  void Leaf(sArchiveLeaf const& leaf) override;
  void BeginNamed(sArchiveNamed const& part) override;
  void EndNamed(long long end) override;
  void Named(sArchiveNamed const& part) override;

private:
  void Item(char const* kind);
  void OpenItems();
  void Close(long long end);
  void Fields(sArchiveNamed const& part);
  void String(std::string_view text);

  COutput& m_out;
  sPrintOptions m_options;
  // Whether the innermost open list has an item yet.
  bool m_bHasItem = false;
  std::string m_scratch; // reused for every string and hex run
};

} // namespace zrn::inspect

#endif
