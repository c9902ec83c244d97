#include "Store/EntityBlob.h"

#include <zrn/IO/DbArchiveImpl.h>
#include <zrn/IO/TaggedObject.h>
#include <zrn/Object/Entity.h>
#include <zrn/Object/Project.h>

#include <exception>
#include <memory>

namespace zrn::detail {
namespace {

// Runs a host's Serialize, turning an exception into an error text.
template <class F> bool Guarded(F&& serialize, std::string& error) {
  try {
    if (serialize())
      return true;
    error = "its Serialize reported a failure";
  } catch (std::exception const& e) {
    error = std::string("its Serialize threw: ") + e.what();
  } catch (...) {
    error = "its Serialize threw";
  }
  return false;
}

} // namespace

CBlobWriter::CBlobWriter() : m_stream(true, nullptr, 0) {}

bool CBlobWriter::Write(IBaseEntityImpl& impl, std::string& error) {
  m_stream.SetOpenMode(true);
  GDbArchiveImpl archive(&m_stream);
  if (!Guarded([&] { return impl.Serialize(archive); }, error))
    return false;
  if (archive.IsAllWriteDataOK())
    return true;
  error = "the archive refused its data (too large?)";
  return false;
}

bool CBlobWriter::WriteProject(IBaseProject& project, std::string& error) {
  m_stream.SetOpenMode(true);
  GDbArchiveImpl archive(&m_stream);
  return Guarded([&] { return project.Serialize(archive); }, error);
}

void CBlobWriter::WriteCounter(long long counter) {
  // The layout IBaseProject::Serialize reads: one object of version 1 whose
  // block 1 is the counter.
  m_stream.SetOpenMode(true);
  GDbArchiveImpl archive(&m_stream);
  GTaggedObject object(archive, typeid(IBaseProject));
  object.Write(1, [&] { object.Block(1, [&] { archive << counter; }); });
}

bool ReadBlob(IBaseEntityImpl& impl, std::string_view bytes, std::string& error) {
  GMemStream view(bytes.data(), static_cast<unsigned>(bytes.size()));
  GDbArchiveImpl archive(&view);
  return Guarded([&] { return impl.Serialize(archive); }, error);
}

void ReadProjectBlob(IBaseProject& project, std::string_view bytes) {
  GMemStream view(bytes.data(), static_cast<unsigned>(bytes.size()));
  GDbArchiveImpl archive(&view);
  project.Serialize(archive);
}

long long CounterOf(std::string_view bytes) {
  IBaseProject probe;
  ReadProjectBlob(probe, bytes);
  return probe.GetUniqueID() - 1;
}

} // namespace zrn::detail
