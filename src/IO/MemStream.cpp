#include <zrn/IO/MemStream.h>

#include "IO/DeviceFailure.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <string>

namespace zrn {

namespace {

constexpr unsigned int kDefaultOwnedSize = 200;
constexpr long long kMaxSize = std::numeric_limits<unsigned int>::max();

} // namespace

GMemStream::GMemStream()
    : GIODevice(false), m_nPosition(0), m_pData(nullptr), m_nSize(0), m_bOwned(true),
      m_bReadOnly(false), m_bFailed(false), m_nMaxSize(kMaxSize) {}

GMemStream::GMemStream(bool bStoring, char* data, unsigned int size)
    : GIODevice(bStoring), m_nPosition(0), m_pData(data), m_nSize(size), m_bOwned(data == nullptr),
      m_bReadOnly(false), m_bFailed(false), m_nMaxSize(kMaxSize) {
  if (m_bOwned)
    AdoptOwned(kDefaultOwnedSize);
}

GMemStream::GMemStream(char const* data, unsigned int size)
    // The bytes are only ever read: m_bReadOnly keeps every write away.
    : GIODevice(false), m_nPosition(0), m_pData(const_cast<char*>(data)), m_nSize(data ? size : 0),
      m_bOwned(false), m_bReadOnly(true), m_bFailed(false), m_nMaxSize(kMaxSize) {}

GMemStream::GMemStream(GMemStream const& other)
    : GIODevice(other), CReferenced(other),
      m_vecBuffer(other.m_bOwned ? other.m_vecBuffer : std::vector<char>()),
      m_nPosition(other.m_nPosition), m_pData(other.m_pData), m_nSize(other.m_nSize),
      m_bOwned(other.m_bOwned), m_bReadOnly(other.m_bReadOnly), m_bFailed(other.m_bFailed),
      m_nMaxSize(other.m_nMaxSize) {
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
  m_bReadOnly = other.m_bReadOnly;
  m_bFailed = other.m_bFailed;
  m_nMaxSize = other.m_nMaxSize;
  m_pData = m_bOwned ? (m_vecBuffer.empty() ? nullptr : m_vecBuffer.data()) : other.m_pData;
  return *this;
}

GMemStream::~GMemStream() = default;

void GMemStream::AdoptOwned(unsigned int size) {
  m_vecBuffer.resize(size);
  m_pData = m_vecBuffer.data();
  m_nSize = size;
}

char* GMemStream::Refuse(std::string const& why) {
  m_bFailed = true;
  detail::ReportDeviceFailure("GMemStream: write refused: " + why);
  return nullptr;
}

char* GMemStream::Reserve(unsigned int n) {
  if (m_bFailed)
    return Refuse("the stream failed earlier");
  const long long end = m_nPosition + n;
  if (m_bOwned) {
    if (end >= m_nSize) {
      // One byte beyond the written end stays free, so the limit on the
      // size is one more than the limit on the output.
      if (end + 1 > m_nMaxSize)
        return Refuse("the output would pass " + std::to_string(m_nMaxSize - 1ULL) +
                      " bytes, the stream's limit");
      AdoptOwned(static_cast<unsigned int>(
          std::min(std::max(end + 1, 2LL * m_nSize), static_cast<long long>(m_nMaxSize))));
    }
  } else if (m_bReadOnly) {
    return Refuse("the stream is a read-only view");
  } else if (m_nPosition < 0 || end > m_nSize) {
    return Refuse("the bytes do not fit in the caller's buffer");
  }
  return m_pData + m_nPosition;
}

bool GMemStream::Write(void* src, unsigned int n) {
  char* const at = Reserve(n);
  if (!at)
    return false;
  if (n != 0)
    std::memcpy(at, src, n);
  m_nPosition += n;
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
  const long long grown =
      std::min(std::max(needed + 1, 2LL * m_nSize), static_cast<long long>(m_nMaxSize));
  if (grown != 0)
    AdoptOwned(static_cast<unsigned int>(grown));
}

void GMemStream::Resize(unsigned int n) {
  if (n != 0 && m_bOwned && n <= m_nMaxSize)
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
  m_bReadOnly = false;
}

} // namespace zrn
