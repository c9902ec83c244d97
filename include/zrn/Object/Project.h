// Projects: the roots of entity trees. A project hands out object ids, owns
// the database device its tree is stored in, and saves and loads the tree
// through the installed data I/O facade.
#ifndef ZRN_OBJECT_PROJECT_H
#define ZRN_OBJECT_PROJECT_H

#include <zrn/Export.h>
#include <zrn/IO/TaggedObject.h>
#include <zrn/Object/Entity.h>
#include <zrn/Object/IBase.h>

#include <string>

namespace zrn {

class GDBDevice;

/// The root of an entity tree, and an archivable object (data type
/// GBM_PROJECT) whose stored state is its unique-ID counter.
///
/// Its own object id is 1; the ids it hands out start at 2. The project owns
/// its device and deletes it before its tree, so tearing the tree down with
/// the project records no deletions. Not copyable, like every entity. Used by
/// one thread at a time.
class ZRN_API IBaseProject : public IBaseEntity, public IBase {
public:
  /// No device; the next id handed out is 2.
  IBaseProject();
  IBaseProject(IBaseProject const&) = delete;
  IBaseProject& operator=(IBaseProject const&) = delete;
  /// Deletes the device, then (as an entity) the tree.
  ~IBaseProject() override;

  /// Stores or loads the unique-ID counter as one object of version 1 with
  /// block 1. Newer versions are skipped whole. A failure inside the archive
  /// is reported (see g_nSerializeErrorMsgBoxMaxCount) and the object rolled
  /// back, so the stream stays usable. Always true.
  bool Serialize(GDbArchive& ar) override;
  /// GBM_PROJECT.
  eGBMDataType GetObjectType() override;

  /// Advances the counter and returns its new value: 2, 3, 4...
  long long GetUniqueID();
  /// The device; null until one is set.
  GDBDevice* GetProjectDBDevice() const { return m_pDBDevice; }
  /// Makes `device` the project's device, which the project then owns. A
  /// previous device is not deleted; it goes back to the caller.
  void SetProjectDBDevice(GDBDevice* device) { m_pDBDevice = device; }

  /// Saves the tree through the installed facade: the device's Open(path)
  /// (its result is not looked at), the facade's PrepareSave, then with the
  /// device's `saving` option set and between BeginAccess and EndAccess, the
  /// facade's SaveProjectData. Does nothing without a device or a facade.
  void SaveProject(std::wstring const& path);
  /// Loads a project from `device` through the installed facade: Open(path),
  /// then with an id of 0 the root's id from the device (table
  /// "EntityTable", column "ID", where "PID" is 0), then with the device's
  /// `loading` option set and between BeginAccess and EndAccess, the facade's
  /// LoadProjectData. Returns the loaded root when it is a project (the
  /// caller owns it), else null: a root of another kind is neither returned
  /// nor deleted. The device is not attached to the project here; the facade
  /// or the host does that with SetProjectDBDevice. Null, with nothing set or
  /// loaded, without a device or facade, when Open fails or when the id
  /// lookup yields no row or no number.
  static IBaseProject* LoadProject(long long id, std::wstring const& path, GDBDevice* device);

private:
  GDBDevice* m_pDBDevice;
  long long m_nUniqueID;
};

} // namespace zrn

#endif // ZRN_OBJECT_PROJECT_H
