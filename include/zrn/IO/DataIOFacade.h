// The host's process-wide object that moves projects and entity data to and
// from database devices, and the one pointer through which the library
// reaches it.
//
// Whether a facade is installed switches every persistence side effect of
// entities on or off: without one, entity trees are plain in-memory trees.
#ifndef ZRN_IO_DATAIOFACADE_H
#define ZRN_IO_DATAIOFACADE_H

#include <zrn/Export.h>

#include <vector>

namespace zrn {

class GDBDevice;
class IBaseEntity;
class IBaseProject;

/// Reads and writes entity trees through a GDBDevice; implemented by the
/// host, which owns it. The library calls SaveProjectData, LoadProjectData,
/// LoadEntityData, SwapOutEntityData and PrepareSave; the other operations
/// are a vocabulary for hosts and the library never calls them.
class ZRN_API IDataIOFacade {
public:
  virtual ~IDataIOFacade();

  /// Writes `project`'s tree to `device`, inside the device's access batch.
  virtual void SaveProjectData(IBaseProject* project, GDBDevice* device) = 0;
  /// Reads the tree whose root has `projectId` from `device` and returns its
  /// root, a new IBaseProject that the caller owns; null when it cannot be
  /// read. While this runs, the device's `loading` option is set.
  virtual IBaseEntity* LoadProjectData(long long projectId, GDBDevice* device) = 0;
  /// Writes one entity's data to `device` (not called by the library).
  virtual void SaveEntityData(IBaseEntity* entity, GDBDevice* device) = 0;
  /// Reads the children of `parent` from `device` and adds them to it (not
  /// called by the library).
  virtual void LoadChildEntities(IBaseEntity* parent, GDBDevice* device) = 0;
  /// Reads `entity`'s data again, discarding what is in memory (not called
  /// by the library).
  virtual void ReloadEntityData(IBaseEntity* entity, GDBDevice* device) = 0;
  /// Removes the records of the given ids from `device` (not called by the
  /// library).
  virtual void DeleteEntityData(std::vector<long long> const& ids, GDBDevice* device) = 0;
  /// Completes a save begun with PrepareSave (not called by the library).
  virtual void FinishSave(GDBDevice* device) = 0;
  /// Fills `entity`'s freshly attached impl object from `device` (which may
  /// be null). Called for a swapped-out entity; the flag is the facade's to
  /// change.
  virtual void LoadEntityData(IBaseEntity* entity, GDBDevice* device) = 0;
  /// Saves `entity`'s impl object to `device` (which may be null) before the
  /// entity drops it from memory.
  virtual void SwapOutEntityData(IBaseEntity* entity, GDBDevice* device) = 0;
  /// Called by SaveProject after the device is opened and before the save
  /// proper begins.
  virtual void PrepareSave(GDBDevice* device) = 0;
};

/// The installed facade; null until the host installs one.
ZRN_API IDataIOFacade* GetIOFacade();
/// Installs `facade` (null uninstalls). The library takes no ownership and
/// leaves a previous facade alone. Not synchronised: install it before
/// entities are used.
ZRN_API void SetIOFacade(IDataIOFacade* facade);

} // namespace zrn

#endif // ZRN_IO_DATAIOFACADE_H
