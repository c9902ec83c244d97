#include <zrn/IO/MemStream.h>

#include <algorithm>
#include <cstring>
#include <limits>

namespace zrn {

namespace {

constexpr unsigned int kDefaultOwnedSize = 200;
constexpr long long kMaxSize = std::numeric_limits<unsigned int>::max();

} // namespace

GMemStream::GMemStream()
    : GIODevice(false), m_nPosition(0), m_pData(nullptr), m_nSize(0), m_bOwned(true) {}

GMemStream::GMemStream(bool bStoring, char* data, unsigned int size)
    : GIODevice(bStoring), m_nPosition(0), m_pData(data), m_nSize(size), m_bOwned(data == nullptr) {
  if (m_bOwned)
    AdoptOwned(kDefaultOwnedSize);
}

GMemStream::GMemStream(GMemStream const& other)
    : GIODevice(other), CReferenced(other),
      m_vecBuffer(other.m_bOwned ? other.m_vecBuffer : std::vector<char>()),
      m_nPosition(other.m_nPosition), m_pData(other.m_pData), m_nSize(other.m_nSize),
      m_bOwned(other.m_bOwned) {
  if (m_bOwned)
    m_pData = m_vecBuffer.empty() ? nullptr : m_vecBuffer.data();
}

GMemStream& GMemStream::operator=(GMemStream const& other) {
  if (this == &other)
    return *this;
  GIODevice::operator=(other);
  m_vecBuffer = other.m_bOwned ? other.m_vecBuffer : std::vector<char>();
  m_nPosition = other.m_nPosition;
  m_nSize = other.m_nSize;
  m_bOwned = other.m_bOwned;
  m_pData = m_bOwned ? (m_vecBuffer.empty() ? nullptr : m_vecBuffer.data()) : other.m_pData;
  return *this;
}

GMemStream::~GMemStream() = default;

void GMemStream::AdoptOwned(unsigned int size) {
  m_vecBuffer.resize(size);
  m_pData = m_vecBuffer.data();
  m_nSize = size;
}

bool GMemStream::Write(void* src, unsigned int n) {
  const long long end = m_nPosition + n;
  if (m_bOwned) {
    if (end >= m_nSize) {
      const long long grown = std::max(end + 1, 2LL * m_nSize);
      if (end + 1 > kMaxSize)
        return false;
      AdoptOwned(static_cast<unsigned int>(std::min(grown, kMaxSize)));
    }
  } else if (m_nPosition < 0 || end > m_nSize) {
    return false;
  }
  if (n != 0)
    std::memcpy(m_pData + m_nPosition, src, n);
  m_nPosition = end;
  return true;
}

unsigned int GMemStream::Read(void* dst, unsigned int n) {
  if (m_nPosition < 0 || m_nPosition + n > m_nSize)
    return 0;
  if (n != 0)
    std::memcpy(dst, m_pData + m_nPosition, n);
  m_nPosition += n;
  return n;
}

bool GMemStream::seek(long long position) {
  if (!m_bOwned)
    m_nPosition = position;
  else if (position < 0 || m_nSize == 0)
    m_nPosition = 0;
  else
    m_nPosition = std::min(position, static_cast<long long>(m_nSize) - 1);
  return true;
}

long long GMemStream::RemainingSize() {
  if (m_nPosition < 0 || m_nPosition > m_nSize)
    return 0;
  return m_nSize - m_nPosition;
}

void GMemStream::EnsureResizeVector(long long needed) {
  if (!m_bOwned || needed < m_nSize)
    return;
  const long long grown = std::min(std::max(needed + 1, 2LL * m_nSize), kMaxSize);
  if (grown != 0)
    AdoptOwned(static_cast<unsigned int>(grown));
}

void GMemStream::Resize(unsigned int n) {
  if (n != 0 && m_bOwned)
    AdoptOwned(n);
}

unsigned int GMemStream::GetDataSize() const {
  if (!storing)
    return m_nSize;
  return static_cast<unsigned int>(std::clamp<long long>(m_nPosition, 0, kMaxSize));
}

void GMemStream::SetData(char* src, int n) {
  if (n <= 0)
    return;
  m_vecBuffer.assign(src, src + n);
  m_pData = m_vecBuffer.data();
  m_nSize = static_cast<unsigned int>(n);
  m_nPosition = 0;
  m_bOwned = true;
}

} // namespace zrn
