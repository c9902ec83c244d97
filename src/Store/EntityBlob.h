// Moving an entity's impl object to and from the bytes a store keeps.
#ifndef ZRN_SRC_STORE_ENTITYBLOB_H
#define ZRN_SRC_STORE_ENTITYBLOB_H

#include <zrn/IO/MemStream.h>

#include <string>
#include <string_view>

namespace zrn {
class IBaseEntity;
class IBaseEntityImpl;
class IBaseProject;
} // namespace zrn

namespace zrn::detail {

/// Archives impl objects into one reused buffer, so that a save allocates
/// nothing per entity once the buffer has grown to the largest impl.
class CBlobWriter {
public:
  CBlobWriter();

  /// Archives `impl`; false (with `error` set) when it throws or the archive
  /// refuses its data.
  bool Write(IBaseEntityImpl& impl, std::string& error);
  /// Archives `project`'s own state (its id counter).
  bool WriteProject(IBaseProject& project, std::string& error);
  /// Archives a project state whose counter is `counter`.
  void WriteCounter(long long counter);

  char const* Data() const { return m_stream.GetData(); }
  unsigned Size() const { return m_stream.GetDataSize(); }

private:
  GMemStream m_stream;
};

/// Fills `impl` from `bytes`; false (with `error` set) when it throws or
/// reports a failure. Bytes that are not an archive read as empty data.
bool ReadBlob(IBaseEntityImpl& impl, std::string_view bytes, std::string& error);
/// Fills `project`'s own state from `bytes`.
void ReadProjectBlob(IBaseProject& project, std::string_view bytes);
/// The id counter that `bytes` (a project state) holds; 1 when none.
long long CounterOf(std::string_view bytes);

} // namespace zrn::detail

#endif // ZRN_SRC_STORE_ENTITYBLOB_H
