// Reading the structure of an archive stream without knowing the classes that
// wrote it: its objects with their versions, their blocks with tags, sizes
// and offsets, the leaf data, and the payloads the library itself writes
// (property collections, their schemes and variant values, the project
// record) where the bytes identify them. docs/INSPECT.md gives the rules.
#ifndef ZRN_IO_ARCHIVEREADER_H
#define ZRN_IO_ARCHIVEREADER_H

#include <zrn/Export.h>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace zrn {

class GIODevice;

/// An object as the reader meets it.
struct sArchiveObject {
  long long offset;         ///< the object's first byte
  unsigned short version;   ///< as the writer chose it
  unsigned char blockCount; ///< blocks the header announces
  /// What the object is when the reader knows it ("project record"), else null.
  char const* name;
};

/// A block as the reader meets it.
struct sArchiveBlock {
  long long offset;  ///< the block's first byte (its tag)
  unsigned char tag; ///< as the writer chose it
  unsigned int size; ///< payload size the header announces
  /// The payload runs past the end of the stream.
  bool truncated;
};

/// A piece of leaf data: payload bytes the reader cannot break down further.
/// A leaf is reported in one or more pieces of consecutive bytes, the first
/// at `at` 0; only its first SetLeafLimit() bytes are reported.
struct sArchiveLeaf {
  long long offset;        ///< the leaf's first byte
  unsigned long long size; ///< the whole leaf's size
  unsigned long long at;   ///< where `bytes` starts within the leaf
  std::string_view bytes;  ///< valid during the call only
};

/// A payload the library writes, recognised by the reader. `name` says what
/// it is, and fixes the meaning of `id` and `text` (docs/INSPECT.md):
/// "property collection", "scheme" (id: class type), "product table",
/// "product" (id: number, text: name), "scheme product" (text: name),
/// "scheme entry" (id: property id, text: name), "property" (id: property
/// id, dataType and typeName of its variant, text: its value), "unique-ID
/// counter" (id: the counter).
struct sArchiveNamed {
  long long offset;        ///< first byte
  unsigned long long size; ///< bytes covered, including nested objects
  char const* name;        ///< never null
  long long id;
  int dataType;          ///< the variant's type for a property, else -1
  char const* typeName;  ///< the variant type's name for a property, else null
  std::string_view text; ///< UTF-8, valid during the call only
  bool textCut;          ///< `text` was cut at the leaf limit
  bool quoted;           ///< `text` is a name or a string value, not a word
};

/// Receives the structure of a stream, in stream order. Begin and End calls
/// nest properly, also when reading stops early. Every End call receives
/// the offset just past what it closes, or where reading stopped for what a
/// stop left open.
/// The default implementations ignore the event.
class ZRN_API IArchiveVisitor {
public:
  virtual ~IArchiveVisitor();
  virtual void BeginObject(sArchiveObject const& object);
  virtual void EndObject(long long end);
  virtual void BeginBlock(sArchiveBlock const& block);
  virtual void EndBlock(long long end);
  virtual void Leaf(sArchiveLeaf const& leaf);
  /// A recognised payload with parts of its own (nested named parts or objects).
  virtual void BeginNamed(sArchiveNamed const& part);
  virtual void EndNamed(long long end);
  /// A recognised payload without parts.
  virtual void Named(sArchiveNamed const& part);
};

/// How the reader treats the first object of a stream.
enum class EArchiveRoot {
  Stream,       ///< nothing is assumed
  ProjectRecord ///< the stream holds a project's own record (its id counter)
};

/// Walks an archive stream and reports its structure to a visitor.
///
/// A stream is read as a sequence of objects, or as one property collection
/// when it is exactly one. A block's payload is shown as objects when it is
/// exactly a sequence of objects of version 1 or above, as a property
/// collection when it is exactly one, and as leaf data otherwise.
///
/// Memory does not grow with the stream's length: nesting is followed with
/// an explicit stack (at most SetMaxDepth() levels), leaf data is reported
/// in pieces, and a device is read through a window. Bytes that cannot be
/// read (a stream cut short, a size beyond the end) end the walk: Read
/// returns false and StoppedAt() and Error() say where and why; everything
/// before that point has been reported.
///
/// One reader serves one walk at a time; separate readers are independent.
class ZRN_API CArchiveReader {
public:
  /// Leaf bytes reported by default per leaf.
  static constexpr unsigned long long kDefaultLeafLimit = 64;
  /// Nesting levels followed by default.
  static constexpr std::size_t kDefaultMaxDepth = 4096;

  CArchiveReader();
  ~CArchiveReader();
  CArchiveReader(CArchiveReader const&) = delete;
  CArchiveReader& operator=(CArchiveReader const&) = delete;

  /// At most `bytes` bytes of each leaf, and of each text value, are
  /// reported (0: sizes only; ~0ULL: everything).
  void SetLeafLimit(unsigned long long bytes) { m_nLeafLimit = bytes; }
  /// Deeper nesting stops the walk with an error.
  void SetMaxDepth(std::size_t levels) { m_nMaxDepth = levels; }
  /// What the stream's first object is known to be.
  void SetRoot(EArchiveRoot root) { m_eRoot = root; }

  /// Walks `size` bytes at `data`; true when the whole stream was read.
  bool Read(void const* data, std::size_t size, IArchiveVisitor& visitor);
  /// Walks the device's bytes from position 0 to its end; true when the
  /// whole stream was read. The device is left positioned anywhere.
  bool Read(GIODevice& device, IArchiveVisitor& visitor);

  /// The stream's size in bytes, after a Read.
  long long StreamSize() const { return m_nStreamSize; }
  /// Where the last Read stopped early (the first byte of the item that
  /// could not be read), or -1 when it read everything.
  long long StoppedAt() const { return m_nStoppedAt; }
  /// Why the last Read stopped early; empty when it did not.
  std::string const& Error() const { return m_strError; }

private:
  class CWalk;

  unsigned long long m_nLeafLimit = kDefaultLeafLimit;
  std::size_t m_nMaxDepth = kDefaultMaxDepth;
  EArchiveRoot m_eRoot = EArchiveRoot::Stream;
  long long m_nStreamSize = 0;
  long long m_nStoppedAt = -1;
  std::string m_strError;
};

} // namespace zrn

#endif // ZRN_IO_ARCHIVEREADER_H
