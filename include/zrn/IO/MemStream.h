// A device over memory: a growable buffer of its own, or a caller's buffer.
#ifndef ZRN_IO_MEMSTREAM_H
#define ZRN_IO_MEMSTREAM_H

#include <zrn/IO/IODevice.h>
#include <zrn/Object/Referenced.h>

#include <cstring>
#include <vector>

namespace zrn {

/// A memory device, shared by count as a CReferenced (data type
/// GBM_MEM_STREAM).
///
/// An owned buffer grows geometrically on writes: to twice its size, or to the
/// needed length + 1 when that is more, so it always keeps at least one byte
/// beyond the written end. A caller's buffer is never grown or freed, and no
/// read or write ever reaches outside it: a write that does not fit returns
/// false and changes nothing. Sizes are 32-bit: a write that would take an
/// owned buffer past 4 GiB returns false and changes nothing.
class ZRN_API GMemStream : public GIODevice, public CReferenced {
public:
  /// A loading stream with an empty owned buffer.
  GMemStream();
  /// A stream over the caller's `data` of `size` bytes; when `data` is null,
  /// over an owned, zero-filled buffer of 200 bytes (`size` is ignored then).
  GMemStream(bool bStoring, char* data, unsigned int size);
  /// Copies mode, position and size; an owned buffer's bytes are copied, a
  /// caller's buffer is shared. The copy's reference count is 0.
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

  /// Grows an owned buffer to max(needed + 1, 2 x size) when `needed` >= size.
  void EnsureResizeVector(long long needed);
  /// Resizes an owned buffer to exactly `n` bytes (n > 0); keeps the position.
  void Resize(unsigned int n);
  /// The bytes in use.
  char* GetData() { return m_pData; }
  /// Storing: the bytes written up to the position. Loading: the size.
  unsigned int GetDataSize() const;
  /// Replaces the contents with a copy of `n` bytes of `src` (n > 0) in an
  /// owned buffer, at position 0.
  void SetData(char* src, int n);

private:
  friend class GDbArchiveImpl;

  // Points m_pData at the owned vector, resized to `size` (zero-filled).
  void AdoptOwned(unsigned int size);

  // Inline paths for archives, with the results of Write and Read: values
  // that fit go straight to or from the buffer.
  bool FastWrite(void const* src, unsigned int n) {
    if (m_bOwned && m_nPosition + n < m_nSize) {
      std::memcpy(m_pData + m_nPosition, src, n);
      m_nPosition += n;
      return true;
    }
    return GMemStream::Write(const_cast<void*>(src), n);
  }
  unsigned int FastRead(void* dst, unsigned int n) {
    char const* const bytes = FastTake(n);
    if (!bytes)
      return 0;
    std::memcpy(dst, bytes, n);
    return n;
  }
  // The next `n` bytes, consumed; null (and nothing consumed) when fewer
  // remain.
  char const* FastTake(unsigned long long n) {
    if (m_nPosition < 0 || static_cast<unsigned long long>(m_nPosition) + n > m_nSize)
      return nullptr;
    char const* const bytes = m_pData + m_nPosition;
    m_nPosition += static_cast<long long>(n);
    return bytes;
  }

  std::vector<char> m_vecBuffer;
  long long m_nPosition;
  char* m_pData;
  unsigned int m_nSize;
  bool m_bOwned;
};

} // namespace zrn

#endif // ZRN_IO_MEMSTREAM_H
