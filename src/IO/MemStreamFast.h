// The inline paths of GMemStream that its archive uses: kept out of the public
// header, so that hosts see neither the buffer arithmetic nor its invariants.
#ifndef ZRN_SRC_IO_MEMSTREAMFAST_H
#define ZRN_SRC_IO_MEMSTREAMFAST_H

#include <zrn/IO/MemStream.h>

#include <cstring>

namespace zrn {

unsigned int GMemStream::FastRead(void* dst, unsigned int n) {
  char const* const bytes = FastTake(n);
  if (!bytes)
    return 0;
  std::memcpy(dst, bytes, n);
  return n;
}

char const* GMemStream::FastTake(unsigned long long n) {
  if (m_nPosition < 0 || static_cast<unsigned long long>(m_nPosition) + n > m_nSize)
    return nullptr;
  char const* const bytes = m_pData + m_nPosition;
  m_nPosition += static_cast<long long>(n);
  return bytes;
}

char* GMemStream::FastRoom(unsigned long long n) {
  if (m_bOwned && !m_bFailed && static_cast<unsigned long long>(m_nPosition) + n < m_nSize)
    return m_pData + m_nPosition;
  return nullptr;
}

void GMemStream::Advance(unsigned int n) { m_nPosition += n; }

long long GMemStream::FastPos() const { return m_nPosition; }

bool GMemStream::FastPatch(long long position, void const* src, unsigned int n) {
  if (!m_bOwned || m_bFailed || position < 0 || position + n > m_nPosition)
    return false;
  std::memcpy(m_pData + position, src, n);
  return true;
}

} // namespace zrn

#endif // ZRN_SRC_IO_MEMSTREAMFAST_H
