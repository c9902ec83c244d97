// The pieces of the archive structure reader: the bytes it reads, the
// shallow checks that decide how a payload is shown, and the grammar of the
// property collection's stream.
#ifndef ZRN_SRC_IO_ARCHIVEREADERPARTS_H
#define ZRN_SRC_IO_ARCHIVEREADERPARTS_H

#include <zrn/IO/ArchiveReader.h>

#include <cstddef>
#include <cstring>
#include <string>

namespace zrn::detail {

/// The bytes of a stream: a memory range, or a device read through a window
/// (so that memory stays bounded by the largest single read).
class CByteSource {
public:
  CByteSource(char const* data, std::size_t size)
      : m_pData(data), m_nSize(static_cast<long long>(size)) {}
  /// Measures the device (reading it through when it cannot tell its size).
  explicit CByteSource(GIODevice& device);

  long long Size() const { return m_nSize; }
  /// The `length` bytes at `offset`, which the caller has checked to lie
  /// within the stream; valid until the next call.
  char const* At(long long offset, std::size_t length) {
    return m_pData ? m_pData + offset : Window(offset, length);
  }
  /// A device read came up short of the size it announced.
  bool Failed() const { return m_bFailed; }

private:
  char const* Window(long long offset, std::size_t length);

  char const* m_pData = nullptr;
  long long m_nSize = 0;
  GIODevice* m_pDevice = nullptr;
  std::string m_window;
  long long m_nWindowStart = 0;
  bool m_bFailed = false;
};

/// Reads fields from [pos, end) of a source; every read checks the end and
/// fails (returning false, consuming nothing) past it.
struct sFieldCursor {
  CByteSource* source;
  long long pos;
  long long end;

  long long Left() const { return end - pos; }
  template <class T> bool Get(T& value) {
    if (Left() < static_cast<long long>(sizeof value))
      return false;
    std::memcpy(&value, source->At(pos, sizeof value), sizeof value);
    pos += static_cast<long long>(sizeof value);
    return true;
  }
  /// A bool as the archive writes it: a byte that is 0 or 1.
  bool Flag(bool& value);
  /// A length-prefixed text of `unitSize`-byte units: where its bytes lie.
  bool Text(std::size_t unitSize, long long& at, std::size_t& bytes);
};

enum class EScan { Exact, Cut, No };

/// Whether [begin, end) is a sequence of objects of version 1 or above that
/// ends exactly at `end` (Exact) or whose last object runs past it (Cut, only
/// when `allowCut`; the first object's header must be whole). Reads headers
/// only: payloads are skipped by their sizes.
EScan ScanObjects(CByteSource& source, long long begin, long long end, bool allowCut);

/// The end of the one object at `begin` that lies within `end`, or -1.
long long ObjectEnd(CByteSource& source, long long begin, long long end);

/// Where recognised parts are reported; a null visitor only checks.
struct sPartSink {
  IArchiveVisitor* visitor;
  unsigned long long leafLimit;
  std::string text; // reused for every value's text
};

/// Whether [begin, end) is exactly one property collection (rules in
/// docs/INSPECT.md).
bool IsPropertyCollection(CByteSource& source, long long begin, long long end);

/// The scheme part and the value count of a collection, reported to `sink`.
bool ReadCollectionHead(sFieldCursor& cursor, sPartSink* sink, int& valueCount);

/// One property of a collection. A value that holds an object is reported
/// with BeginNamed, and [objectBegin, objectEnd) is the object, which the
/// caller walks and closes with EndNamed; otherwise objectBegin is -1.
struct sPropertyStep {
  int id = -1;
  long long objectBegin = -1;
  long long objectEnd = -1;
};
bool ReadProperty(sFieldCursor& cursor, sPartSink* sink, int previousId, sPropertyStep& step);

/// The name of a variant's data type, or null for a type the reader does not know.
char const* VariantTypeName(int type);

} // namespace zrn::detail

#endif
