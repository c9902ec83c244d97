#include <zrn/IO/DbArchiveImpl.h>

#include "IO/ArchiveFrame.h"
#include "IO/MemStreamFast.h"
#include "IO/Utf16.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <typeinfo>

namespace zrn {

namespace {

// Reads from a device that cannot tell its size grow the target by at most
// this much beyond the bytes actually received.
constexpr std::size_t kUnsizedReadStep = 1 << 20;

// The length of `text` up to its first NUL, at most `size`.
std::size_t UpToNul(char const* text, std::size_t size) {
  const void* const nul = std::memchr(text, '\0', size);
  return nul ? static_cast<std::size_t>(static_cast<char const*>(nul) - text) : size;
}

} // namespace

GDbArchiveImpl::GDbArchiveImpl(GIODevice* device)
    : m_pDevice(device), m_pMemory(nullptr), m_nActiveRecord(-1), m_nObjectID(0),
      m_bWriteRefused(false) {
  if (m_pDevice && typeid(*m_pDevice) == typeid(GMemStream))
    m_pMemory = static_cast<GMemStream*>(m_pDevice);
  if (m_pDevice)
    m_pDevice->seek(0);
}

GDbArchiveImpl::GDbArchiveImpl()
    : m_pDevice(nullptr), m_pMemory(nullptr), m_nActiveRecord(-1), m_nObjectID(0),
      m_bWriteRefused(false) {}

GDbArchiveImpl::GDbArchiveImpl(GDbArchiveImpl const& other) = default;

GDbArchiveImpl& GDbArchiveImpl::operator=(GDbArchiveImpl const& other) = default;

GDbArchiveImpl::~GDbArchiveImpl() = default;

bool GDbArchiveImpl::IsLoading() { return !m_pDevice || m_pDevice->IsLoading(); }

bool GDbArchiveImpl::IsStoring() { return !IsLoading(); }

long long GDbArchiveImpl::DevicePos() { return Position(); }

// --- The device primitives -----------------------------------------------------
// The only functions that ask whether the device is the memory stream.

inline char* GDbArchiveImpl::Room(unsigned long long size) {
  return m_pMemory ? m_pMemory->FastRoom(size) : nullptr;
}

inline void GDbArchiveImpl::Commit(unsigned int size) { m_pMemory->Advance(size); }

// Past the buffer's room (growing it, or refusing), the memory stream too is
// written through its virtual Write.
inline void GDbArchiveImpl::WriteOut(void const* data, unsigned int size) {
  if (char* const at = Room(size)) {
    std::memcpy(at, data, size);
    Commit(size);
  } else {
    WriteToDevice(data, size);
  }
}

inline unsigned int GDbArchiveImpl::ReadSome(void* data, unsigned int size) {
  if (m_pMemory)
    return m_pMemory->FastRead(data, size);
  return m_pDevice ? m_pDevice->Read(data, size) : 0;
}

inline char const* GDbArchiveImpl::Take(std::size_t size) {
  if (m_pMemory)
    return m_pMemory->FastTake(size);
  return ReadPayload(m_strScratch, size) ? m_strScratch.data() : nullptr;
}

inline long long GDbArchiveImpl::Position() {
  if (m_pMemory)
    return m_pMemory->FastPos();
  return m_pDevice ? m_pDevice->pos() : 0;
}

// Inline like the others: three patches go with every framed record, and
// an out-of-line call here cost a fifth of the framed write's time.
inline void GDbArchiveImpl::PatchBytes(long long position, void const* data, unsigned int size) {
  if (!m_pMemory || !m_pMemory->FastPatch(position, data, size))
    PatchDevice(position, data, size);
}

void GDbArchiveImpl::PatchDevice(long long position, void const* data, unsigned int size) {
  if (!m_pDevice || m_bWriteRefused)
    return;
  const long long back = Position();
  m_pDevice->seek(position);
  WriteOut(data, size);
  m_pDevice->seek(back);
}

void GDbArchiveImpl::WriteToDevice(void const* data, unsigned int size) {
  // After a refusal nothing more goes out: later writes that a device might
  // still take would leave a hole that reads back as valid data.
  if (!m_pDevice || m_bWriteRefused)
    return;
  if (!m_pDevice->Write(const_cast<void*>(data), size))
    m_bWriteRefused = true;
}

template <class T> GDbArchive& GDbArchiveImpl::Put(T const& value) {
  WriteOut(&value, sizeof value);
  return *this;
}

template <class T> GDbArchive& GDbArchiveImpl::Get(T& value) {
  ReadSome(&value, sizeof value);
  return *this;
}

template <class A, class B> void GDbArchiveImpl::PutPair(A first, B second) {
  if (char* const at = Room(sizeof first + sizeof second)) {
    std::memcpy(at, &first, sizeof first);
    std::memcpy(at + sizeof first, &second, sizeof second);
    Commit(sizeof first + sizeof second);
    return;
  }
  Put(first);
  Put(second);
}

template <class T> void GDbArchiveImpl::Patch(long long position, T const& value) {
  PatchBytes(position, &value, sizeof value);
}

void GDbArchiveImpl::PutSized(int length, void const* data, unsigned int size) {
  if (char* const at = Room(sizeof length + static_cast<unsigned long long>(size))) {
    std::memcpy(at, &length, sizeof length);
    if (size != 0)
      std::memcpy(at + sizeof length, data, size);
    Commit(static_cast<unsigned int>(sizeof length + size));
    return;
  }
  Put(length);
  if (size != 0)
    WriteOut(data, size);
}

void GDbArchiveImpl::GetCurPos(long long& position) { position = Position(); }

void GDbArchiveImpl::ErrorMsgBox(std::string, std::string) {}

unsigned short GDbArchiveImpl::GetVersion() {
  return m_vecVersions.empty() ? 0 : m_vecVersions.back().version;
}

void GDbArchiveImpl::RewindTo(long long position) {
  while (!m_vecVersions.empty() && m_vecVersions.back().start >= position)
    m_vecVersions.pop_back();
  std::erase_if(m_vecRecords, [position](KeyedRecord const& r) {
    return r.record.m_nCountPos - static_cast<long long>(detail::kBlockCountOffset) >= position;
  });
  m_nActiveRecord = -1;
  if (m_pDevice)
    m_pDevice->seek(position);
}

void GDbArchiveImpl::InitArchivePosData() {
  m_nActiveRecord = -1;
  m_nObjectID = 0;
}

// --- Values ------------------------------------------------------------------

GDbArchive& GDbArchiveImpl::operator<<(std::string const& value) {
  PutSized(static_cast<int>(value.size()), value.data(), static_cast<unsigned int>(value.size()));
  return *this;
}

GDbArchive& GDbArchiveImpl::operator<<(std::wstring const& value) {
  // Encoded straight into a memory buffer that has room for the longest
  // form (every character a surrogate pair), else through the scratch string.
  constexpr int kLength = sizeof(int);
  if (char* const at = Room(kLength + 4ULL * value.size())) {
    const std::size_t bytes = detail::EncodeUtf16(value, at + kLength);
    const auto units = static_cast<int>(bytes / 2);
    std::memcpy(at, &units, kLength);
    Commit(static_cast<unsigned int>(kLength + bytes));
    return *this;
  }
  detail::EncodeUtf16(value, m_strScratch);
  PutSized(static_cast<int>(m_strScratch.size() / 2), m_strScratch.data(),
           static_cast<unsigned int>(m_strScratch.size()));
  return *this;
}

// --- Fixed-width values: one write or read of their bytes --------------------------
GDbArchive& GDbArchiveImpl::operator<<(double value) { return Put(value); }
GDbArchive& GDbArchiveImpl::operator<<(unsigned long long value) { return Put(value); }
GDbArchive& GDbArchiveImpl::operator<<(long long value) { return Put(value); }
GDbArchive& GDbArchiveImpl::operator<<(float value) { return Put(value); }
GDbArchive& GDbArchiveImpl::operator<<(unsigned int value) { return Put(value); }
GDbArchive& GDbArchiveImpl::operator<<(int value) { return Put(value); }
GDbArchive& GDbArchiveImpl::operator<<(unsigned short value) { return Put(value); }
GDbArchive& GDbArchiveImpl::operator<<(short value) { return Put(value); }
GDbArchive& GDbArchiveImpl::operator<<(unsigned char value) { return Put(value); }
GDbArchive& GDbArchiveImpl::operator<<(char value) { return Put(value); }
GDbArchive& GDbArchiveImpl::operator<<(bool value) { return Put(value); }
GDbArchive& GDbArchiveImpl::operator>>(double& value) { return Get(value); }
GDbArchive& GDbArchiveImpl::operator>>(unsigned long long& value) { return Get(value); }
GDbArchive& GDbArchiveImpl::operator>>(long long& value) { return Get(value); }
GDbArchive& GDbArchiveImpl::operator>>(float& value) { return Get(value); }
GDbArchive& GDbArchiveImpl::operator>>(unsigned int& value) { return Get(value); }
GDbArchive& GDbArchiveImpl::operator>>(int& value) { return Get(value); }
GDbArchive& GDbArchiveImpl::operator>>(unsigned short& value) { return Get(value); }
GDbArchive& GDbArchiveImpl::operator>>(short& value) { return Get(value); }
GDbArchive& GDbArchiveImpl::operator>>(unsigned char& value) { return Get(value); }
GDbArchive& GDbArchiveImpl::operator>>(char& value) { return Get(value); }

GDbArchive& GDbArchiveImpl::operator<<(unsigned long value) {
  return Put(static_cast<unsigned long long>(value));
}

GDbArchive& GDbArchiveImpl::operator<<(long value) { return Put(static_cast<long long>(value)); }

GDbArchive& GDbArchiveImpl::operator>>(unsigned long& value) {
  unsigned long long wide;
  if (ReadSome(&wide, sizeof wide) == sizeof wide)
    value = static_cast<unsigned long>(wide);
  return *this;
}

GDbArchive& GDbArchiveImpl::operator>>(long& value) {
  long long wide;
  if (ReadSome(&wide, sizeof wide) == sizeof wide)
    value = static_cast<long>(wide);
  return *this;
}

GDbArchive& GDbArchiveImpl::operator>>(bool& value) {
  // Any byte but 0 is true; a bool must never hold another bit pattern.
  unsigned char byte;
  if (ReadSome(&byte, 1) == 1)
    value = byte != 0;
  return *this;
}

int GDbArchiveImpl::ReadLength() {
  int length = 0;
  Get(length);
  return length;
}

bool GDbArchiveImpl::ReadPayload(std::string& out, std::size_t size) {
  if (!m_pDevice)
    return false;
  const long long remaining = m_pDevice->RemainingSize();
  if (remaining >= 0) {
    if (static_cast<unsigned long long>(remaining) < size)
      return false;
    out.resize(size);
    return m_pDevice->Read(out.data(), static_cast<unsigned int>(size)) == size;
  }
  // The device cannot tell its size: let the bytes that arrive pay for the
  // memory they need.
  out.clear();
  while (out.size() < size) {
    const std::size_t done = out.size();
    const std::size_t step = std::min(size - done, kUnsizedReadStep);
    out.resize(done + step);
    if (m_pDevice->Read(out.data() + done, static_cast<unsigned int>(step)) != step)
      return false;
  }
  return true;
}

GDbArchive& GDbArchiveImpl::operator>>(std::string& value) {
  const std::size_t bytes = detail::StoredPayloadBytes(ReadLength(), 1);
  if (bytes == 0)
    return *this;
  if (char const* const text = Take(bytes))
    value.assign(text, UpToNul(text, bytes));
  else
    value.clear();
  return *this;
}

GDbArchive& GDbArchiveImpl::operator>>(std::wstring& value) {
  const std::size_t bytes = detail::StoredPayloadBytes(ReadLength(), 2);
  if (bytes == 0)
    return *this;
  if (char const* const units = Take(bytes))
    detail::DecodeUtf16(std::string_view(units, bytes), value);
  else
    value.clear();
  return *this;
}

GDbArchive& GDbArchiveImpl::WriteBytes(void* data, int size) {
  PutSized(size, data, size >= 1 ? static_cast<unsigned int>(size) : 0);
  return *this;
}

GDbArchive& GDbArchiveImpl::ReadBytes(void*& data, int& size) {
  data = nullptr;
  size = 0;
  const int length = ReadLength();
  if (length < 1) {
    size = length;
    return *this;
  }
  // Taken first, so that a length the device cannot supply allocates nothing.
  if (char const* const bytes = Take(static_cast<std::size_t>(length))) {
    data = ::operator new(static_cast<std::size_t>(length));
    std::memcpy(data, bytes, static_cast<std::size_t>(length));
    size = length;
  }
  return *this;
}

GDbArchive& GDbArchiveImpl::ReadRawData(void* data, int size) {
  if (size > 0)
    ReadSome(data, static_cast<unsigned int>(size));
  return *this;
}

GDbArchive& GDbArchiveImpl::WriteRawData(void* data, int size) {
  if (size > 0)
    WriteOut(data, static_cast<unsigned int>(size));
  return *this;
}

// --- Writing objects -----------------------------------------------------------

GDbArchiveImpl::ObjectPosRecord* GDbArchiveImpl::FindRecord(void const* key) {
  for (std::ptrdiff_t i = static_cast<std::ptrdiff_t>(m_vecRecords.size()) - 1; i >= 0; --i) {
    if (m_vecRecords[i].key == key) {
      m_nActiveRecord = i;
      return &m_vecRecords[i].record;
    }
  }
  m_nActiveRecord = -1;
  return nullptr;
}

void GDbArchiveImpl::WriteSize(long long const& position, unsigned int const* size4,
                               unsigned char* size1) {
  if (size4)
    Patch(position, *size4);
  else if (size1)
    Patch(position, *size1);
}

// The placeholders go out together with the bytes before them, in one write:
// the version with the count byte, the tag with the size field.

void GDbArchiveImpl::BeginWriteObject(void const* key, unsigned short version) {
  const long long start = Position();
  PushVersion(version, start);
  ObjectPosRecord* record = SetActiveObject(key);
  if (!record) {
    // Filled in place, field by field: a record built aside and copied in
    // costs a store-forwarding stall on every object.
    KeyedRecord& added = m_vecRecords.emplace_back();
    added.key = key;
    m_nActiveRecord = static_cast<std::ptrdiff_t>(m_vecRecords.size()) - 1;
    record = &added.record;
  }
  record->m_nSizePos = 0;
  record->m_nBlockStart = 0;
  record->m_nCountPos = start + static_cast<long long>(detail::kBlockCountOffset);
  record->m_nBlockCount = 0;
  PutPair(version, static_cast<unsigned char>(0));
}

void GDbArchiveImpl::BeginWriteBlock(unsigned char tag, void const* key) {
  ObjectPosRecord* const record = SetActiveObject(key);
  if (!record)
    return;
  const long long start = Position();
  record->m_nSizePos = start + static_cast<long long>(detail::kBlockSizeOffset);
  record->m_nBlockStart = start + static_cast<long long>(detail::kBlockHeaderSize);
  ++record->m_nBlockCount;
  PutPair(tag, 0u);
}

void GDbArchiveImpl::EndWriteBlock(unsigned char tag, void const* key) {
  Q_ASSERTBlockID(tag, true);
  ObjectPosRecord* const record = SetActiveObject(key);
  if (!record)
    return;
  Patch(record->m_nSizePos, static_cast<unsigned int>(Position() - record->m_nBlockStart));
}

void GDbArchiveImpl::EndWriteObject(void const* key) {
  ObjectPosRecord* const record = SetActiveObject(key);
  if (!record)
    return;
  Patch(record->m_nCountPos, record->m_nBlockCount);
  if (m_nActiveRecord + 1 == static_cast<std::ptrdiff_t>(m_vecRecords.size()))
    m_vecRecords.pop_back(); // the innermost object, as nesting makes it
  else
    m_vecRecords.erase(m_vecRecords.begin() + m_nActiveRecord);
  m_nActiveRecord = -1;
  // The object's version leaves the stack as a read one does.
  if (!m_vecVersions.empty())
    m_vecVersions.pop_back();
}

bool GDbArchiveImpl::WriteEmptyObject() {
  const auto key = reinterpret_cast<void const*>(CreateNewObjectID());
  BeginWriteObject(key, 1);
  EndWriteObject(key);
  return true;
}

void GDbArchiveImpl::RollbackWriteObject(int position) {
  RewindTo(position);
  WriteEmptyObject();
}

// --- Reading objects -----------------------------------------------------------

void GDbArchiveImpl::ReadObject(unsigned char& blockCount, unsigned short& version) {
  // Zeroed first, so that a short read yields an empty object of version 0.
  version = 0;
  blockCount = 0;
  const long long start = Position();
  Get(version);
  Get(blockCount);
  PushVersion(version, start);
}

void GDbArchiveImpl::ReadBlock(unsigned char& tag, unsigned int& size) {
  tag = 0;
  size = 0;
  Get(tag);
  Get(size);
}

void GDbArchiveImpl::EndReadObject() {
  if (!m_vecVersions.empty())
    m_vecVersions.pop_back();
}

void GDbArchiveImpl::SkipObject() {
  unsigned char blockCount;
  unsigned short version;
  ReadObject(blockCount, version);
  for (unsigned i = 0; i < blockCount && m_pDevice; ++i) {
    unsigned char tag;
    unsigned int size;
    ReadBlock(tag, size);
    m_pDevice->seek(m_pDevice->pos() + size);
  }
  EndReadObject();
}

bool GDbArchiveImpl::ReadEmptyObject() {
  SkipObject();
  return true;
}

void GDbArchiveImpl::RollbackReadObject(int position) {
  RewindTo(position);
  SkipObject();
}

void GDbArchiveImpl::SeekPos(int offset, SEEKFROM from) {
  if (!m_pDevice)
    return;
  const long long target = from == SEEKFROM_CURRENT ? m_pDevice->pos() + offset : offset;
  m_pDevice->seek(target);
}

} // namespace zrn
