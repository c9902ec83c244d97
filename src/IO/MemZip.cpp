#include <zrn/IO/MemZip.h>

#include "Platform/Platform.h"

#include <zip.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <new>
#include <string>
#include <system_error>

namespace zrn {

namespace {

// Room for the block headers and end codes of a short deflate stream, which
// the ratio bound does not cover.
constexpr unsigned long long kCompressedSlack = 4096;

// Whether an entry may be as large as it claims: no bigger than an entry may
// be, its compressed bytes no more than everything the object was given
// (`budget`), and its size no more than those bytes can produce.
bool Plausible(zip_stat_t const& stat, unsigned long long budget) {
  constexpr auto kNeeded = ZIP_STAT_SIZE | ZIP_STAT_COMP_SIZE | ZIP_STAT_COMP_METHOD;
  if ((stat.valid & kNeeded) != kNeeded || stat.size > CMemZip::kMaxEntrySize ||
      stat.comp_size > budget)
    return false;
  if (stat.comp_method == ZIP_CM_STORE)
    return stat.size <= stat.comp_size;
  return stat.size <= stat.comp_size * CMemZip::kMaxCompressionRatio + kCompressedSlack;
}

// Fills `stat` for the entry `name` of `archive`; false when it is missing,
// empty, or not plausible given the bytes of `source` and `added` bytes.
bool StatEntry(zip_t* archive, zip_source_t* source, const char* name, unsigned long long added,
               zip_stat_t& stat) {
  zip_stat_init(&stat);
  if (zip_stat(archive, name, 0, &stat) < 0 || !(stat.valid & ZIP_STAT_SIZE) || stat.size == 0)
    return false;
  zip_stat_t whole;
  zip_stat_init(&whole);
  return zip_source_stat(source, &whole) == 0 && Plausible(stat, whole.size + added);
}

// A source that forwards every command to the buffer source `inner` but does
// not offer to clone it. libzip 1.7's buffer source, when it clones a buffer
// it does not own (the caller's bytes) while writing, later frees those bytes
// as if they were its own; writing the whole archive afresh avoids that.
zip_int64_t ForwardWithoutCloning(void* inner, void* data, zip_uint64_t length,
                                  zip_source_cmd_t command) {
  auto* source = static_cast<zip_source_t*>(inner);
  auto* seek = static_cast<zip_source_args_seek_t*>(data);
  switch (command) {
  case ZIP_SOURCE_OPEN:
    return zip_source_open(source);
  case ZIP_SOURCE_READ:
    return zip_source_read(source, data, length);
  case ZIP_SOURCE_CLOSE:
    return zip_source_close(source);
  case ZIP_SOURCE_STAT:
    return zip_source_stat(source, static_cast<zip_stat_t*>(data)) < 0
               ? -1
               : static_cast<zip_int64_t>(sizeof(zip_stat_t));
  case ZIP_SOURCE_ERROR:
    return zip_error_to_data(zip_source_error(source), data, length);
  case ZIP_SOURCE_FREE:
    zip_source_free(source);
    return 0;
  case ZIP_SOURCE_SEEK:
    return zip_source_seek(source, seek->offset, seek->whence);
  case ZIP_SOURCE_TELL:
    return zip_source_tell(source);
  case ZIP_SOURCE_BEGIN_WRITE:
    return zip_source_begin_write(source);
  case ZIP_SOURCE_WRITE:
    return zip_source_write(source, data, length);
  case ZIP_SOURCE_COMMIT_WRITE:
    return zip_source_commit_write(source);
  case ZIP_SOURCE_ROLLBACK_WRITE:
    zip_source_rollback_write(source);
    return 0;
  case ZIP_SOURCE_SEEK_WRITE:
    return zip_source_seek_write(source, seek->offset, seek->whence);
  case ZIP_SOURCE_TELL_WRITE:
    return zip_source_tell_write(source);
  case ZIP_SOURCE_REMOVE: // leaves the buffer empty; libzip marks this source deleted
    return zip_source_begin_write(source) < 0 ? -1 : zip_source_commit_write(source);
  case ZIP_SOURCE_SUPPORTS:
    return ZIP_SOURCE_SUPPORTS_WRITABLE;
  default:
    return -1;
  }
}

// A writable source over `size` bytes at `data`, which it never frees.
zip_source_t* CreateSource(const char* data, unsigned long long size, zip_error_t* error) {
  zip_source_t* buffer = zip_source_buffer_create(data, size, 0, error);
  if (!buffer)
    return nullptr;
  zip_source_t* source = zip_source_function_create(ForwardWithoutCloning, buffer, error);
  if (!source)
    zip_source_free(buffer);
  return source;
}

void ReportSourceFailure(char const* what, zip_source_t* source) {
  platform::WriteStandardError(std::string(what) + " on buffer failed: " +
                               zip_error_strerror(zip_source_error(source)) + "\n");
}

// A new array of `size` bytes, or null when there is no memory for it.
std::unique_ptr<char[]> NewBytes(unsigned long long size) {
  return std::unique_ptr<char[]>(new (std::nothrow) char[size]);
}

} // namespace

CMemZip::CMemZip(const char* data, unsigned long long size) : m_pError(new zip_error) {
  zip_error_init(m_pError.get());
  m_pSource = CreateSource(data, size, m_pError.get());
  if (!m_pSource)
    return;
  m_pArchive = zip_open_from_source(m_pSource, 0, m_pError.get());
  if (!m_pArchive) {
    // A source without an archive serves nothing: dropping it marks the
    // object invalid, as distinct from one closed by a flush.
    zip_source_free(m_pSource);
    m_pSource = nullptr;
    return;
  }
  // The archive owns one reference and drops it when closed; this one keeps
  // the source, and with it the finished archive, alive after that.
  zip_source_keep(m_pSource);
}

CMemZip::~CMemZip() {
  // Committing into a buffer that is freed right after could not be seen.
  if (m_pArchive)
    zip_discard(m_pArchive);
  zip_source_free(m_pSource);
  zip_error_fini(m_pError.get());
}

CMemZip::operator bool() const { return m_pSource != nullptr; }

bool CMemZip::Open() {
  if (m_pArchive)
    return true;
  if (!m_pSource)
    return false;
  m_pArchive = zip_open_from_source(m_pSource, 0, m_pError.get());
  if (!m_pArchive)
    return false;
  zip_source_keep(m_pSource);
  return true;
}

bool CMemZip::Close() {
  if (!m_pArchive)
    return true;
  if (zip_close(m_pArchive) < 0)
    return false; // libzip leaves the archive open, changes and all
  m_pArchive = nullptr;
  // Everything added is in the finished archive now; libzip reads the copies
  // no more.
  m_vecKeptBuffers.clear();
  m_nKeptBytes = 0;
  return true;
}

bool CMemZip::Add(const char* name, const char* data, unsigned long long size) {
  if (!m_pSource || !name || (!data && size != 0) || size > kMaxEntrySize)
    return false;
  std::unique_ptr<char[]> copy = NewBytes(size);
  if (!copy)
    return false;
  std::copy(data, data + size, copy.get());
  return AddKept(name, std::move(copy), size);
}

bool CMemZip::AddFile(const char* name, const char* path) {
  if (!m_pSource || !name || !path)
    return false;
  std::error_code error;
  const std::filesystem::path file(path);
  if (!std::filesystem::is_regular_file(file, error))
    return false;
  const std::uintmax_t size = std::filesystem::file_size(file, error);
  if (error || size == 0 || size > kMaxEntrySize)
    return false;
  std::ifstream in(file, std::ios::binary);
  std::unique_ptr<char[]> bytes = NewBytes(size);
  if (!in || !bytes || !in.read(bytes.get(), static_cast<std::streamsize>(size)))
    return false;
  return AddKept(name, std::move(bytes), size);
}

bool CMemZip::AddKept(const char* name, std::unique_ptr<char[]> data, unsigned long long size) {
  if (!Open())
    return false;
  char const* const bytes = data.get();
  m_vecKeptBuffers.push_back(std::move(data));
  m_nKeptBytes += size;
  zip_source_t* entry = zip_source_buffer(m_pArchive, bytes, size, 0);
  if (!entry)
    return false;
  if (zip_file_add(m_pArchive, name, entry, ZIP_FL_OVERWRITE) < 0) {
    zip_source_free(entry);
    return false;
  }
  return true;
}

char* CMemZip::Extract(const char* name, unsigned long long& size) {
  size = 0;
  zip_stat_t stat;
  zip_file_t* file = name ? OpenEntry(name, stat) : nullptr;
  if (!file)
    return nullptr;
  std::unique_ptr<char[]> bytes = NewBytes(stat.size);
  const auto wanted = static_cast<zip_int64_t>(stat.size);
  // The probe for one more byte must find the end: that is where libzip
  // checks the checksum, and an entry longer than it claims is refused too.
  char probe = 0;
  const bool whole =
      bytes && zip_fread(file, bytes.get(), stat.size) == wanted && zip_fread(file, &probe, 1) == 0;
  zip_fclose(file);
  if (!whole)
    return nullptr;
  size = stat.size;
  return bytes.release();
}

zip_file* CMemZip::OpenEntry(const char* name, zip_stat_t& stat) {
  for (bool committed = false;; committed = true) {
    if (!Open() || !StatEntry(m_pArchive, m_pSource, name, m_nKeptBytes, stat))
      return nullptr;
    if (zip_file_t* file = zip_fopen_index(m_pArchive, stat.index, 0))
      return file;
    // libzip reads committed entries only: an entry added since the last
    // commit is read after one.
    if (committed || zip_error_code_zip(zip_get_error(m_pArchive)) != ZIP_ER_CHANGED || !Close())
      return nullptr;
  }
}

char* CMemZip::FlushToBytes(unsigned long long& size) {
  if (!m_pSource || !Close())
    return nullptr;
  zip_stat_t stat;
  zip_stat_init(&stat);
  if (zip_source_stat(m_pSource, &stat) < 0)
    return nullptr;
  size = stat.size;
  if (zip_source_open(m_pSource) < 0) {
    // An archive whose last entry went leaves the source marked deleted.
    if (zip_error_code_zip(zip_source_error(m_pSource)) != ZIP_ER_DELETED)
      ReportSourceFailure("zip_source_open", m_pSource);
    return nullptr;
  }
  // An archive that never had an entry leaves no bytes at all.
  char* block = stat.size == 0 ? nullptr : static_cast<char*>(std::malloc(stat.size));
  if (!block) {
    zip_source_close(m_pSource);
    return nullptr;
  }
  if (zip_source_read(m_pSource, block, stat.size) < static_cast<zip_int64_t>(stat.size)) {
    ReportSourceFailure("zip_source_read", m_pSource);
    zip_source_close(m_pSource);
    std::free(block);
    return nullptr;
  }
  zip_source_close(m_pSource);
  return block;
}

bool CMemZip::FlushToFile(const char* path) {
  if (!path)
    return false;
  unsigned long long size = 0;
  char* block = FlushToBytes(size);
  if (!block)
    return false;
  std::FILE* file = std::fopen(path, "wb");
  if (!file) {
    std::free(block);
    return false;
  }
  const bool written = std::fwrite(block, size, 1, file) == 1;
  std::free(block);
  const bool closed = std::fclose(file) == 0;
  return written && closed;
}

} // namespace zrn
