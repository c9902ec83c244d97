// A device over memory: a growable buffer of its own, or a caller's buffer.
#ifndef ZRN_IO_MEMSTREAM_H
#define ZRN_IO_MEMSTREAM_H

#include <zrn/IO/IODevice.h>
#include <zrn/Object/Referenced.h>

#include <string>
#include <vector>

namespace zrn {

/// A memory device, shared by count as a CReferenced (data type
/// GBM_MEM_STREAM).
///
/// An owned buffer grows geometrically on writes: to twice its size, or to the
/// needed length + 1 when that is more, so it always keeps at least one byte
/// beyond the written end. A caller's buffer is never grown or freed, and no
/// read or write ever reaches outside it. A read-only view (the constructor
/// from `char const*`) is never written at all. Sizes are 32-bit: an owned
/// buffer holds at most 2^32 - 1 bytes.
///
/// A write that cannot be taken (past the size limit, past the end of a
/// caller's buffer, into a read-only view) returns false, writes nothing, and
/// makes the stream fail for good: IsGood() turns false, every later write is
/// refused as well, and the calling thread's error code is set to err_failed
/// with a message naming the cause. Reads are not affected.
///
/// Archives (GDbArchiveImpl) read and write the buffer of a device that is
/// exactly a GMemStream directly, without virtual calls. A subclass, even one
/// that overrides nothing, is served through the virtual operations like any
/// other device, so that its overrides are honoured.
class ZRN_API GMemStream : public GIODevice, public CReferenced {
public:
  /// A loading stream with an empty owned buffer.
  GMemStream();
  /// A stream over the caller's `data` of `size` bytes; when `data` is null,
  /// over an owned, zero-filled buffer of 200 bytes (`size` is ignored then).
  GMemStream(bool bStoring, char* data, unsigned int size);
  /// A loading stream that reads the caller's `size` bytes at `data` in place
  /// and never writes them, even when switched to storing (every write is
  /// refused). Null `data` gives an empty view.
  GMemStream(char const* data, unsigned int size);
  /// Copies mode, position, size and failure; an owned buffer's bytes are
  /// copied, a caller's buffer (or view) is shared. The copy's reference
  /// count is 0.
  GMemStream(GMemStream const& other);
  GMemStream& operator=(GMemStream const& other);
  ~GMemStream() override;

  long long pos() override { return m_nPosition; }
  bool Write(void* src, unsigned int n) override;
  unsigned int Read(void* dst, unsigned int n) override;
  /// An owned buffer clamps to [0, size - 1] (0 when empty); a caller's
  /// buffer takes `position` as given. Always true.
  bool seek(long long position) override;
  long long RemainingSize() override;
  /// False once a write was refused.
  bool IsGood() const override { return !m_bFailed; }

  /// Grows an owned buffer to max(needed + 1, 2 x size) when `needed` >= size
  /// (never past the size limit).
  void EnsureResizeVector(long long needed);
  /// Resizes an owned buffer to exactly `n` bytes (n > 0); keeps the position.
  void Resize(unsigned int n);
  /// The bytes in use. For a read-only view these are the caller's constant
  /// bytes: do not write through the pointer.
  char* GetData() { return m_pData; }
  char const* GetData() const { return m_pData; }
  /// Storing: the bytes written up to the position. Loading: the size.
  unsigned int GetDataSize() const;
  /// Replaces the contents with a copy of `n` bytes of `src` (n > 0) in an
  /// owned buffer, at position 0.
  void SetData(char* src, int n);

private:
  friend class GDbArchiveImpl;
  // For tests only: lowers m_nMaxSize, so that the size limit can be tested
  // without gigabytes of data. Defined by the tests, not by the library.
  friend struct DeviceTestAccess;

  // Points m_pData at the owned vector, resized to `size` (zero-filled).
  void AdoptOwned(unsigned int size);
  // Refuses a write: fails the stream for good, reports `why`, returns null.
  char* Refuse(std::string const& why);

  // The archive's inline paths. Declared here for the friend, defined in the
  // library's private IO/MemStreamFast.h so that hosts see no buffer
  // arithmetic: values that fit go straight to or from the buffer.

  // Read with the same result, without a virtual call.
  inline unsigned int FastRead(void* dst, unsigned int n);
  // The next `n` bytes, consumed; null (and nothing consumed) when fewer
  // remain.
  inline char const* FastTake(unsigned long long n);
  // Room for `n` more bytes at the position of an owned buffer that already
  // has it (one byte to spare, as Write keeps), or null; nothing grows and
  // nothing fails here. The caller writes there and then calls Advance.
  inline char* FastRoom(unsigned long long n);
  inline void Advance(unsigned int n);
  inline long long FastPos() const;
  // Overwrites `n` bytes at `position` inside the written part of an owned
  // buffer; false (nothing done) when that is not where they lie.
  inline bool FastPatch(long long position, void const* src, unsigned int n);
  // Where a write of `n` bytes goes, after growing an owned buffer as needed;
  // null when the write is refused (the stream has failed then).
  char* Reserve(unsigned int n);

  std::vector<char> m_vecBuffer;
  long long m_nPosition;
  char* m_pData;
  unsigned int m_nSize;
  bool m_bOwned;
  bool m_bReadOnly;
  bool m_bFailed;
  // The largest size an owned buffer may grow to.
  unsigned int m_nMaxSize;
};

} // namespace zrn

#endif // ZRN_IO_MEMSTREAM_H
