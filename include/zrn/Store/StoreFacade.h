// The data I/O facade that stores entity trees in an entity-store device:
// install it with SetIOFacade and projects save, load and swap through it.
//
//   zrn::GStoreFacade facade;
//   facade.Types().Register<CBeam>(100);
//   zrn::SetIOFacade(&facade);
//   project->SetProjectDBDevice(new zrn::GSqliteDevice);
//   project->SaveProject(L"model.zrndb");          // facade.LastSaveSucceeded()
//   auto* device = new zrn::GSqliteDevice;
//   zrn::IBaseProject* copy = zrn::IBaseProject::LoadProject(0, L"model.zrndb", device);
//   // copy owns the device now; on a null result the caller still does.
#ifndef ZRN_STORE_STOREFACADE_H
#define ZRN_STORE_STOREFACADE_H

#include <zrn/IO/DataIOFacade.h>
#include <zrn/Store/EntityTypeRegistry.h>
#include <zrn/Store/StoreExport.h>

#include <cstddef>
#include <functional>
#include <string>
#include <unordered_map>

namespace zrn {

class GEntityStoreDevice;

/// Stores each entity as a row (id, parent id, order among siblings, type
/// id, flags) with its impl object's data archived into a blob.
///
/// Saving writes only what changed: new entities, entities marked
/// EGOBJECT_FLAG_MODIFIED, swapped-out data that was never saved, and the
/// rows named in the device's deleted-objects list. It is one transaction;
/// only after it commits are the written entities marked
/// EGOBJECT_FLAG_STORED and EGOBJECT_FLAG_MODIFIED cleared, and the
/// deleted-objects list emptied. When anything fails nothing in memory
/// changes, the store keeps its previous state, LastSaveSucceeded() is false
/// and the device's LastError() says why.
///
/// Loading builds the tree with every entity swapped out (impl data read on
/// demand through LoadEntityData), or with every impl read at once when
/// SetEagerLoad(true). The loaded project owns the device it was loaded
/// from. A store whose rows do not form one tree (a parent missing, a cycle,
/// an unregistered type id) loads nothing (null) and says why.
///
/// Only an entity's impl object is stored: data kept in the entity object
/// itself is not. Changing impl data needs EGOBJECT_FLAG_MODIFIED set for
/// the next save to write it.
///
/// Works with devices derived from GEntityStoreDevice; any other device is
/// refused with an error. One facade serves every project of the process;
/// like the entity trees it serves, it is used by one thread at a time.
class ZRN_STORE_API GStoreFacade : public IDataIOFacade {
public:
  /// Reports progress of long phases: `phase` names it ("save", "load"),
  /// `done` of `total` entities are through.
  using Progress = std::function<void(char const* phase, std::size_t done, std::size_t total)>;

  GStoreFacade();
  ~GStoreFacade() override;

  /// The classes this facade creates when loading.
  CEntityTypeRegistry& Types() { return m_types; }
  /// With true, loading reads every impl object at once instead of leaving
  /// the entities swapped out. False by default.
  void SetEagerLoad(bool eager) { m_bEagerLoad = eager; }
  /// Called every few thousand entities while a save or load runs; none by
  /// default.
  void SetProgress(Progress progress) { m_progress = std::move(progress); }
  /// True when the last SaveProjectData committed.
  bool LastSaveSucceeded() const { return m_bLastSaveOk; }
  /// How many rows the last save wrote (changed entities, order updates and
  /// deletions together).
  std::size_t LastSaveRowCount() const { return m_nLastSaveRows; }

  void SaveProjectData(IBaseProject* project, GDBDevice* device) override;
  IBaseEntity* LoadProjectData(long long projectId, GDBDevice* device) override;
  /// Writes `entity`'s impl data when it is modified or not stored yet.
  void SaveEntityData(IBaseEntity* entity, GDBDevice* device) override;
  /// Not offered: a store loads whole trees. Does nothing.
  void LoadChildEntities(IBaseEntity* parent, GDBDevice* device) override;
  /// Reads `entity`'s impl data again from its row, replacing what is in
  /// memory, and clears EGOBJECT_FLAG_MODIFIED.
  void ReloadEntityData(IBaseEntity* entity, GDBDevice* device) override;
  /// Removes the rows of `ids` in one transaction.
  void DeleteEntityData(std::vector<long long> const& ids, GDBDevice* device) override;
  /// Nothing to finish: a save commits in SaveProjectData.
  void FinishSave(GDBDevice* device) override;
  /// Fills `entity`'s fresh impl object from the data kept at swap-out, else
  /// from its row, and clears EGOBJECT_FLAG_SWAPPED. Data that was never
  /// saved comes back marked EGOBJECT_FLAG_MODIFIED. Without a device, data
  /// kept in memory at swap-out comes back.
  void LoadEntityData(IBaseEntity* entity, GDBDevice* device) override;
  /// Keeps `entity`'s impl data when it differs from its row (modified or
  /// never stored), so that nothing is lost when the entity drops it. Without
  /// a device the data is kept in memory.
  void SwapOutEntityData(IBaseEntity* entity, GDBDevice* device) override;
  /// Checks that `device` is an open entity store; the save then fails early
  /// when it is not.
  void PrepareSave(GDBDevice* device) override;

private:
  friend class CStoreSave;
  friend class CStoreLoad;

  void Report(char const* phase, std::size_t done, std::size_t total) const;

  CEntityTypeRegistry m_types;
  Progress m_progress;
  bool m_bEagerLoad = false;
  bool m_bLastSaveOk = false;
  std::size_t m_nLastSaveRows = 0;
  // Swapped-out data of entities that have no device, by entity.
  std::unordered_map<IBaseEntity const*, std::string> m_detachedSwaps;
};

} // namespace zrn

#endif // ZRN_STORE_STOREFACADE_H
