#include <zrn/IO/TaggedObject.h>

#include "Platform/Exceptions.h"

#include <string>

namespace zrn {

int g_nSerializeErrorMsgBoxMaxCount = 0;

namespace {

// Error texts name this place, as hosts' logs and tests know it.
std::string Where(int line) { return "\nfile: Object\\IBase:" + std::to_string(line); }

void Report(GDbArchive& ar, std::string const& caption, std::string const& text) {
  if (g_nSerializeErrorMsgBoxMaxCount >= 1)
    return;
  ar.ErrorMsgBox(caption, text);
  ++g_nSerializeErrorMsgBoxMaxCount;
}

// True when `f()` returned, false when it threw.
template <class F> bool Completes(F& f) {
  return platform::CallCatchingFailure([](void* p) { (*static_cast<F*>(p))(); }, &f);
}

} // namespace

GTaggedObject::GTaggedObject(GDbArchive& ar, std::type_info const& owner)
    : m_ar(ar), m_owner(owner), m_nStart(ar.DevicePos()), m_key(nullptr), m_nVersion(0) {}

bool GTaggedObject::WriteObject(unsigned short version, Action blocks, void* context) {
  auto write = [&] { WriteFramed(version, blocks, context); };
  if (!Completes(write))
    RollBack("SAVE_DATA", 376);
  return true;
}

bool GTaggedObject::ReadObject(unsigned short newestKnown, TagReader read, void* context) {
  auto run = [&] { ReadFramed(newestKnown, read, context); };
  if (!Completes(run))
    RollBack("LOAD_DATA", 367);
  return true;
}

void GTaggedObject::WriteFramed(unsigned short version, Action blocks, void* context) {
  m_key = reinterpret_cast<void const*>(m_ar.CreateNewObjectID());
  m_nVersion = version;
  m_ar.BeginWriteObject(m_key, version);
  blocks(context);
  m_ar.EndWriteObject(m_key);
}

void GTaggedObject::ReadFramed(unsigned short newestKnown, TagReader read, void* context) {
  unsigned char blockCount = 0;
  m_ar.ReadObject(blockCount, m_nVersion);
  if (m_nVersion > newestKnown) {
    // Written by a newer library: skip it whole and drop its version.
    m_ar.SeekPos(static_cast<int>(m_nStart), GDbArchive::SEEKFROM_BEGIN);
    m_ar.SkipObject();
    m_ar.EndReadObject();
    return;
  }
  for (unsigned i = 0; i < blockCount; ++i)
    ReadBlock(read, context);
  m_ar.EndReadObject();
}

void GTaggedObject::ReadBlock(TagReader read, void* context) {
  unsigned char tag = 0;
  unsigned int size = 0;
  m_ar.ReadBlock(tag, size);
  const long long start = m_ar.DevicePos();
  if (!read(context, tag)) {
    m_ar.SeekPos(static_cast<int>(size), GDbArchive::SEEKFROM_CURRENT);
    return;
  }
  if (m_ar.DevicePos() - start != static_cast<long long>(size)) {
    Report(m_ar, "load data", "read block error :" + Where(365));
    m_ar.SeekPos(static_cast<int>(start + size), GDbArchive::SEEKFROM_BEGIN);
  }
}

void GTaggedObject::RollBack(char const* caption, int line) {
  Report(m_ar, caption,
         caption + Where(line) + "\ntypename: " + platform::ReadableTypeName(m_owner));
  if (m_ar.IsLoading())
    m_ar.RollbackReadObject(static_cast<int>(m_nStart));
  else
    m_ar.RollbackWriteObject(static_cast<int>(m_nStart));
}

} // namespace zrn
