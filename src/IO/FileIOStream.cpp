#include <zrn/IO/FileIOStream.h>

#include "IO/DeviceFailure.h"
#include "Platform/Platform.h"
#include "Text/Utf8.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace zrn {

namespace {

constexpr long long kMaxOutput = std::numeric_limits<int>::max();
constexpr std::streamsize kLineBufferSize = 2000;

// Chunks come in pairs from one large block each: large blocks are backed
// by huge pages and recycled across devices, so gathering hundreds of
// megabytes costs no page faults once a first output has been written.
constexpr std::size_t kChunksPerBlock = platform::kLargeBlockSize / 0x100000;

// Runs at least this long are copied into the chunks with streaming stores.
constexpr std::size_t kStreamingCopyMin = 4096;

// Copies `n` bytes into a chunk. The bytes are next read at close, long after
// they have left the cache, so long runs bypass it: a plain store would first
// fetch every destination line from memory only to overwrite it.
void CopyToChunk(char* to, char const* from, std::size_t n) {
#if defined(__SSE2__)
  if (n >= kStreamingCopyMin) {
    const std::size_t head = (16 - reinterpret_cast<std::uintptr_t>(to) % 16) % 16;
    std::memcpy(to, from, head);
    to += head;
    from += head;
    n -= head;
    for (; n >= 64; n -= 64, to += 64, from += 64) {
      auto const* in = reinterpret_cast<__m128i const*>(from);
      auto* out = reinterpret_cast<__m128i*>(to);
      const __m128i a = _mm_loadu_si128(in);
      const __m128i b = _mm_loadu_si128(in + 1);
      const __m128i c = _mm_loadu_si128(in + 2);
      const __m128i d = _mm_loadu_si128(in + 3);
      _mm_stream_si128(out, a);
      _mm_stream_si128(out + 1, b);
      _mm_stream_si128(out + 2, c);
      _mm_stream_si128(out + 3, d);
    }
    std::memcpy(to, from, n);
    _mm_sfence(); // ordered before anything that reads the chunk later
    return;
  }
#endif
  std::memcpy(to, from, n);
}

} // namespace

GFileIOStream::GFileIOStream(bool bStoring, std::wstring path, bool text)
    : GIODevice(bStoring), m_nHighWater(0), m_nWritePos(0), m_nReadPos(0), m_nFileSize(0),
      m_nLimit(kMaxOutput), m_bFailed(false) {
  std::ios::openmode mode = bStoring ? (std::ios::out | std::ios::trunc) : std::ios::in;
  if (!text)
    mode |= std::ios::binary;
  m_file.open(detail::ToUtf8(path), mode);
  if (storing) {
    AddChunks();
  } else if (m_file.is_open()) {
    const auto end = m_file.rdbuf()->pubseekoff(0, std::ios::end, std::ios::in);
    m_nFileSize = end < 0 ? 0 : static_cast<long long>(end);
    if (end < 0 || m_file.rdbuf()->pubseekpos(0, std::ios::in) != 0)
      m_file.setstate(std::ios::failbit);
  }
}

GFileIOStream::~GFileIOStream() { close(); }

long long GFileIOStream::pos() { return storing ? m_nWritePos : m_nReadPos; }

bool GFileIOStream::seek(long long position) {
  if (storing) {
    if (position < 0 || position > m_nHighWater)
      return false;
    m_nWritePos = static_cast<int>(position);
    return true;
  }
  if (position < 0)
    return false;
  // Past the end is allowed, as with any file: reads there return nothing.
  if (m_file.rdbuf()->pubseekpos(position, std::ios::in) < 0)
    return false;
  if (m_file.is_open())
    m_file.clear(); // an end reached by ReadLine before no longer holds
  m_nReadPos = position;
  return true;
}

long long GFileIOStream::RemainingSize() {
  if (storing)
    return m_nHighWater - m_nWritePos;
  return std::max(0LL, m_nFileSize - m_nReadPos);
}

unsigned int GFileIOStream::Read(void* data, unsigned int size) {
  if (storing || !m_file.is_open())
    return 0;
  const std::streamsize got = m_file.rdbuf()->sgetn(static_cast<char*>(data), size);
  const auto n = static_cast<unsigned int>(std::max<std::streamsize>(got, 0));
  m_nReadPos += n;
  return n;
}

bool GFileIOStream::ReadLine(std::string& line) {
  char buffer[kLineBufferSize];
  buffer[0] = '\0';
  m_file.getline(buffer, kLineBufferSize);
  if (m_file.fail() && !m_file.eof() && m_file.gcount() == kLineBufferSize - 1)
    m_file.clear(); // a longer line: the rest comes next time
  const auto position = m_file.rdbuf()->pubseekoff(0, std::ios::cur, std::ios::in);
  if (position >= 0)
    m_nReadPos = position;
  line.assign(buffer);
  return !line.empty();
}

bool GFileIOStream::Refuse(std::string const& why) {
  m_bFailed = true;
  detail::ReportDeviceFailure("GFileIOStream: write refused: " + why);
  return false;
}

bool GFileIOStream::Write(void* data, unsigned int size) {
  if (m_bFailed)
    return Refuse("the device failed earlier; the file will stay empty");
  if (size == 0)
    return true;
  if (m_nWritePos + static_cast<long long>(size) > m_nLimit)
    return Refuse("the output would pass " + std::to_string(m_nLimit) +
                  " bytes, the device's limit; the file will stay empty");
  // Every chunk the write needs is there before a byte is copied, so a
  // refused write has written nothing.
  const auto end = static_cast<std::size_t>(m_nWritePos) + size;
  while (m_vecChunks.size() * BUF_LIMIT < end) {
    if (!AddChunks())
      return Refuse("no memory for the output; the file will stay empty");
  }
  auto const* source = static_cast<char const*>(data);
  while (size > BUF_LIMIT) {
    WriteBuffer(source, BUF_LIMIT);
    source += BUF_LIMIT;
    size -= BUF_LIMIT;
  }
  return WriteBuffer(source, size);
}

bool GFileIOStream::AddChunks() {
  static_assert(kChunksPerBlock * 0x100000 == platform::kLargeBlockSize);
  auto* const block = static_cast<char*>(platform::AcquireLargeBlock());
  if (!block)
    return false;
  for (std::size_t i = 0; i < kChunksPerBlock; ++i)
    m_vecChunks.push_back(block + i * BUF_LIMIT);
  return true;
}

bool GFileIOStream::WriteBuffer(void const* data, unsigned int size) {
  auto const* source = static_cast<char const*>(data);
  while (size > 0) {
    const std::size_t chunk = static_cast<std::size_t>(m_nWritePos) / BUF_LIMIT;
    const std::size_t offset = static_cast<std::size_t>(m_nWritePos) % BUF_LIMIT;
    const unsigned int n = std::min<unsigned int>(size, BUF_LIMIT - offset);
    CopyToChunk(m_vecChunks[chunk] + offset, source, n);
    source += n;
    size -= n;
    m_nWritePos += static_cast<int>(n);
  }
  m_nHighWater = std::max(m_nHighWater, m_nWritePos);
  return true;
}

void GFileIOStream::flush() {
  if (m_nHighWater == 0 || !m_file.is_open() || m_bFailed)
    return;
  long long left = m_nHighWater;
  for (char* chunk : m_vecChunks) {
    const auto n = static_cast<std::streamsize>(std::min<long long>(left, BUF_LIMIT));
    if (n == 0)
      break;
    if (m_file.rdbuf()->sputn(chunk, n) != n) {
      m_file.setstate(std::ios::badbit);
      detail::ReportDeviceFailure("GFileIOStream: the file could not be written");
      return;
    }
    left -= n;
  }
}

void GFileIOStream::close() {
  if (storing)
    flush();
  if (m_file.is_open())
    m_file.close(); // a failure sets the fail state
  m_nHighWater = 0;
  m_nWritePos = 0;
  for (std::size_t i = 0; i < m_vecChunks.size(); i += kChunksPerBlock)
    platform::ReleaseLargeBlock(m_vecChunks[i]);
  m_vecChunks.clear();
}

} // namespace zrn
