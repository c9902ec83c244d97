// Zip archives built and read in memory.
//
// A CMemZip opens an archive from a byte buffer, or starts an empty one, takes
// entries from memory or from files, extracts entries into memory, and hands
// the finished archive back as one block or writes it to a file. The zip work
// itself is libzip's; its headers are not needed to use this one.
#ifndef ZRN_IO_MEMZIP_H
#define ZRN_IO_MEMZIP_H

#include <zrn/Export.h>

#include <memory>
#include <vector>

struct zip;
struct zip_error;
struct zip_file;
struct zip_source;
struct zip_stat;

namespace zrn {

/// A zip archive that lives in memory.
///
/// The bytes given to the constructor are read in place, never copied,
/// changed or freed: they must stay alive and unchanged as long as the object.
/// The data of every Add is copied, and the copy kept until libzip has written
/// it into the archive. Changes live in the open archive until a flush, which
/// closes it and leaves the finished archive in memory of the object's own;
/// extracting or adding afterwards reopens it from there.
///
/// Entries are limited to kMaxEntrySize bytes. Extract refuses an entry whose
/// claimed size is above that, or more than its compressed bytes can produce
/// (stored: the same size; compressed: at most kMaxCompressionRatio times
/// them plus 4 KiB), or whose compressed bytes are more than the object was
/// given; it also refuses an entry whose content turns out shorter or longer
/// than claimed, or fails its checksum. So hostile bytes never make it
/// allocate far beyond their own size.
///
/// Failures give false or null; the two failures of reading the finished
/// archive back also print a line to standard error. Nothing is thrown.
/// An object is used by one thread at a time; it cannot be copied or moved.
class ZRN_API CMemZip {
public:
  /// The largest entry size accepted, in bytes (2 GiB - 1).
  static constexpr unsigned long long kMaxEntrySize = 0x7FFFFFFF;
  /// How many times its compressed size a compressed entry may claim.
  static constexpr unsigned long long kMaxCompressionRatio = 1032;

  /// Opens the archive held in `size` bytes at `data`; no bytes (the
  /// defaults) start a new, empty archive. Check the result with operator
  /// bool: bytes that are not an archive give an invalid object.
  explicit CMemZip(const char* data = nullptr, unsigned long long size = 0);
  /// Commits pending changes (their result is lost) and releases everything.
  ~CMemZip();

  CMemZip(CMemZip const&) = delete;
  CMemZip& operator=(CMemZip const&) = delete;

  /// True when the archive could be opened. An invalid object only refuses.
  explicit operator bool() const;

  /// Adds the entry `name` with a copy of `size` bytes at `data`, replacing
  /// an entry of the same name. After a flush the archive is reopened first.
  /// False when the archive cannot take it; the copy is kept even then.
  bool Add(const char* name, const char* data, unsigned long long size);
  /// Adds the entry `name` with the whole content of the file at `path`.
  /// False for a missing, unreadable or empty file, one that is not a
  /// regular file, or one of more than kMaxEntrySize bytes.
  bool AddFile(const char* name, const char* path);
  /// A new array (release it with delete[]) holding the uncompressed content
  /// of the entry `name` (exact, case-sensitive match), its length in `size`.
  /// Null with `size` 0 for a missing, empty or refused entry. libzip reads
  /// committed entries only: reading one added since the last flush commits
  /// the archive first, as a flush does.
  char* Extract(const char* name, unsigned long long& size);
  /// Closes the archive and returns the complete archive bytes in a block
  /// allocated with malloc (release it with free), its length in `size`.
  /// Null for an archive without entries (silently), or when the archive
  /// cannot be written; the archive then stays open.
  char* FlushToBytes(unsigned long long& size);
  /// FlushToBytes, then writes the bytes to the file at `path`; false when
  /// there are no bytes or the file cannot be written.
  bool FlushToFile(const char* path);

private:
  // Reopens the archive from the source when it is closed; true when open.
  bool Open();
  // Commits the open archive into the source; true when closed.
  bool Close();
  // Adds `size` bytes of `data`, which the kept buffers take over.
  bool AddKept(const char* name, std::unique_ptr<char[]> data, unsigned long long size);
  // The entry `name` opened for reading, its checked stat in `stat`; null
  // when it is missing, empty, implausible or unreadable.
  zip_file* OpenEntry(const char* name, zip_stat& stat);

  std::vector<std::unique_ptr<char[]>> m_vecKeptBuffers;
  unsigned long long m_nKeptBytes = 0;
  std::unique_ptr<zip_error> m_pError;
  zip_source* m_pSource = nullptr;
  zip* m_pArchive = nullptr;
};

} // namespace zrn

#endif // ZRN_IO_MEMZIP_H
