#include <zrn/IO/DbArchiveImpl.h>

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
    : m_pDevice(device), m_pMemory(nullptr), m_nActiveRecord(-1), m_nObjectID(0) {
  if (m_pDevice && typeid(*m_pDevice) == typeid(GMemStream))
    m_pMemory = static_cast<GMemStream*>(m_pDevice);
  if (m_pDevice)
    m_pDevice->seek(0);
}

GDbArchiveImpl::GDbArchiveImpl()
    : m_pDevice(nullptr), m_pMemory(nullptr), m_nActiveRecord(-1), m_nObjectID(0) {}

GDbArchiveImpl::GDbArchiveImpl(GDbArchiveImpl const& other) = default;

GDbArchiveImpl& GDbArchiveImpl::operator=(GDbArchiveImpl const& other) = default;

GDbArchiveImpl::~GDbArchiveImpl() = default;

bool GDbArchiveImpl::IsLoading() { return !m_pDevice || m_pDevice->IsLoading(); }

bool GDbArchiveImpl::IsStoring() { return !IsLoading(); }

long long GDbArchiveImpl::DevicePos() {
  if (m_pMemory)
    return m_pMemory->m_nPosition;
  return m_pDevice ? m_pDevice->pos() : 0;
}

void GDbArchiveImpl::PutBytes(void const* data, unsigned int size) {
  if (m_pMemory)
    m_pMemory->FastWrite(data, size);
  else if (m_pDevice)
    m_pDevice->Write(const_cast<void*>(data), size);
}

void GDbArchiveImpl::GetCurPos(long long& position) { position = DevicePos(); }

void GDbArchiveImpl::ErrorMsgBox(std::string, std::string) {}

unsigned short GDbArchiveImpl::GetVersion() {
  return m_vecVersions.empty() ? 0 : m_vecVersions.back().version;
}

void GDbArchiveImpl::PushVersion(unsigned short version, long long start) {
  m_vecVersions.push_back({version, start});
}

void GDbArchiveImpl::RewindTo(long long position) {
  while (!m_vecVersions.empty() && m_vecVersions.back().start >= position)
    m_vecVersions.pop_back();
  // A record's count byte follows its object's two-byte version.
  std::erase_if(m_vecRecords,
                [position](KeyedRecord const& r) { return r.record.m_nCountPos - 2 >= position; });
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
  Put(static_cast<int>(value.size()));
  if (!value.empty())
    PutBytes(value.data(), static_cast<unsigned int>(value.size()));
  return *this;
}

GDbArchive& GDbArchiveImpl::operator<<(std::wstring const& value) {
  detail::EncodeUtf16(value, m_strScratch);
  Put(static_cast<int>(m_strScratch.size() / 2));
  if (!m_strScratch.empty())
    PutBytes(m_strScratch.data(), static_cast<unsigned int>(m_strScratch.size()));
  return *this;
}

GDbArchive& GDbArchiveImpl::operator<<(unsigned long value) {
  return Put(static_cast<unsigned long long>(value));
}

GDbArchive& GDbArchiveImpl::operator<<(long value) { return Put(static_cast<long long>(value)); }

unsigned int GDbArchiveImpl::ReadSome(void* data, unsigned int size) {
  if (m_pMemory)
    return m_pMemory->FastRead(data, size);
  return m_pDevice ? m_pDevice->Read(data, size) : 0;
}

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
  const int length = ReadLength();
  if (length < 1)
    return *this;
  if (m_pMemory) {
    char const* const text = m_pMemory->FastTake(static_cast<unsigned int>(length));
    if (!text)
      value.clear();
    else
      value.assign(text, UpToNul(text, static_cast<std::size_t>(length)));
    return *this;
  }
  if (!ReadPayload(value, static_cast<std::size_t>(length)))
    value.clear();
  else
    value.resize(UpToNul(value.data(), value.size()));
  return *this;
}

GDbArchive& GDbArchiveImpl::operator>>(std::wstring& value) {
  const int length = ReadLength();
  if (length < 1)
    return *this;
  const std::size_t bytes = static_cast<std::size_t>(length) * 2;
  if (m_pMemory) {
    char const* const units = m_pMemory->FastTake(bytes);
    if (!units)
      value.clear();
    else
      detail::DecodeUtf16(std::string_view(units, bytes), value);
    return *this;
  }
  if (!ReadPayload(m_strScratch, bytes))
    value.clear();
  else
    detail::DecodeUtf16(m_strScratch, value);
  return *this;
}

GDbArchive& GDbArchiveImpl::WriteBytes(void* data, int size) {
  *this << size;
  if (size >= 1)
    WriteRawData(data, size);
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
  const long long remaining = m_pDevice ? m_pDevice->RemainingSize() : 0;
  if (remaining >= length) {
    void* block = ::operator new(static_cast<std::size_t>(length));
    if (m_pDevice->Read(block, static_cast<unsigned int>(length)) ==
        static_cast<unsigned int>(length)) {
      data = block;
      size = length;
    } else {
      ::operator delete(block);
    }
  } else if (remaining < 0 && ReadPayload(m_strScratch, static_cast<std::size_t>(length))) {
    data = ::operator new(static_cast<std::size_t>(length));
    std::memcpy(data, m_strScratch.data(), static_cast<std::size_t>(length));
    size = length;
  }
  return *this;
}

GDbArchive& GDbArchiveImpl::ReadRawData(void* data, int size) {
  if (size <= 0)
    return *this;
  if (m_pMemory)
    m_pMemory->FastRead(data, static_cast<unsigned int>(size));
  else if (m_pDevice)
    m_pDevice->Read(data, static_cast<unsigned int>(size));
  return *this;
}

GDbArchive& GDbArchiveImpl::WriteRawData(void* data, int size) {
  if (size > 0)
    PutBytes(data, static_cast<unsigned int>(size));
  return *this;
}

// --- Writing objects -----------------------------------------------------------

GDbArchiveImpl::ObjectPosRecord* GDbArchiveImpl::SetActiveObject(void const* key) {
  if (m_nActiveRecord >= 0 && m_vecRecords[m_nActiveRecord].key == key)
    return &m_vecRecords[m_nActiveRecord].record;
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
  if (!m_pDevice)
    return;
  // A patch inside an owned memory buffer goes straight to its bytes; the
  // seeks around it would not move anything.
  const std::size_t width = size4 ? sizeof *size4 : sizeof *size1;
  if (m_pMemory && m_pMemory->m_bOwned && position >= 0 &&
      position + static_cast<long long>(width) <= m_pMemory->m_nPosition) {
    std::memcpy(m_pMemory->m_pData + position, size4 ? static_cast<void const*>(size4) : size1,
                width);
    return;
  }
  const long long back = m_pDevice->pos();
  m_pDevice->seek(position);
  if (size4)
    *this << *size4;
  else if (size1)
    *this << *size1;
  m_pDevice->seek(back);
}

void GDbArchiveImpl::BeginWriteObject(void const* key, unsigned short version) {
  PushVersion(version, DevicePos());
  *this << version;
  ObjectPosRecord* record = SetActiveObject(key);
  if (!record) {
    m_vecRecords.push_back({key, {}});
    m_nActiveRecord = static_cast<std::ptrdiff_t>(m_vecRecords.size()) - 1;
    record = &m_vecRecords.back().record;
  }
  *record = ObjectPosRecord{};
  GetCurPos(record->m_nCountPos);
  *this << static_cast<unsigned char>(0);
}

void GDbArchiveImpl::BeginWriteBlock(unsigned char tag, void const* key) {
  ObjectPosRecord* const record = SetActiveObject(key);
  if (!record)
    return;
  *this << tag;
  GetCurPos(record->m_nSizePos);
  *this << 0u;
  GetCurPos(record->m_nBlockStart);
  ++record->m_nBlockCount;
}

void GDbArchiveImpl::EndWriteBlock(unsigned char tag, void const* key) {
  Q_ASSERTBlockID(tag, true);
  ObjectPosRecord* const record = SetActiveObject(key);
  if (!record)
    return;
  const auto size = static_cast<unsigned int>(DevicePos() - record->m_nBlockStart);
  WriteSize(record->m_nSizePos, &size, nullptr);
}

void GDbArchiveImpl::EndWriteObject(void const* key) {
  ObjectPosRecord* const record = SetActiveObject(key);
  if (!record)
    return;
  WriteSize(record->m_nCountPos, nullptr, &record->m_nBlockCount);
  m_vecRecords.erase(m_vecRecords.begin() + m_nActiveRecord);
  m_nActiveRecord = -1;
  EndReadObject(); // the object's version leaves the stack as a read one does
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
  const long long start = DevicePos();
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
