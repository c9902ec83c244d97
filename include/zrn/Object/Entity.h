// Entities: the nodes of a host's object tree, with ids, flags and bulk data
// that can be swapped out to the store and fetched back.
#ifndef ZRN_OBJECT_ENTITY_H
#define ZRN_OBJECT_ENTITY_H

#include <zrn/Export.h>

#include <cstddef>
#include <vector>

namespace zrn {

class GDbArchive;
class GDBDevice;
class IBaseEntity;
class IBaseProject;

/// Entity flag bits; several may be set at once. The type is fixed at 32
/// bits so that any combination is a valid value.
enum EGOBJECT_FLAG : int {
  /// The data differs from the store. Set on every new entity; setting it
  /// (with a facade installed) clears EGOBJECT_FLAG_SWAPPED.
  EGOBJECT_FLAG_MODIFIED = 1,
  /// The impl object is not in memory and must be fetched through the
  /// facade. Setting it (with a facade installed) clears
  /// EGOBJECT_FLAG_MODIFIED.
  EGOBJECT_FLAG_SWAPPED = 2,
  /// The entity has a record in the store, so deleting it is recorded in the
  /// device's deleted-objects list.
  EGOBJECT_FLAG_STORED = 4,
  /// Requests to set EGOBJECT_FLAG_MODIFIED are ignored (with a facade
  /// installed and a project with a device).
  EGOBJECT_FLAG_NO_MODIFY = 8,
};

/// An entity's bulk data, which may be dropped from memory and fetched again.
/// Hosts derive from it; an entity owns its impl object. Not copyable, since
/// a copy would claim the same entity.
class ZRN_API IBaseEntityImpl {
public:
  /// No entity yet.
  IBaseEntityImpl();
  IBaseEntityImpl(IBaseEntityImpl const&) = delete;
  IBaseEntityImpl& operator=(IBaseEntityImpl const&) = delete;
  virtual ~IBaseEntityImpl();

  /// Writes or reads the data as the archive's direction says. The default
  /// has no data: it writes an empty object or skips one; returns true.
  virtual bool Serialize(GDbArchive& ar);

  /// Sets the entity this data belongs to (not owned).
  void SetBaseEntity(IBaseEntity* entity) { m_pBaseEntity = entity; }
  /// The entity this data belongs to; null until attached.
  IBaseEntity* GetBaseEntity() const { return m_pBaseEntity; }

private:
  IBaseEntity* m_pBaseEntity;
};

/// A node of an entity tree: a parent, owned children in insertion order, an
/// object id, a word of EGOBJECT_FLAG bits and an optional, owned impl object.
///
/// Ids below 2 mean "not assigned"; a project hands out ids when a subtree is
/// added under it. Deleting an entity deletes its impl object and then its
/// whole subtree. Deletion works without recursion, so trees of any depth can
/// be built, numbered and torn down. When a facade is installed, deleting a
/// stored entity records its id in the project device's deleted-objects
/// list; without a facade, every persistence side effect is off.
///
/// Subtrees are torn down in pre-order: each node is recorded (while its
/// parent link leads to the live root), then deleted (host destructor, then
/// its impl object), then its children follow. A node's children are handed
/// to the running teardown when it is deleted, so during a descendant's
/// destructor GetParent() is the entity whose deletion started the teardown
/// (a live node on the same path to the root) rather than the already-deleted
/// direct parent. A host destructor that calls DeleteAllChild or DeleteChild
/// on its own entity detaches those children at once; the same teardown
/// deletes them after that destructor returns.
///
/// Not copyable: a memberwise copy would share the owned children and impl
/// object. A tree is used by one thread at a time; no locking.
class ZRN_API IBaseEntity {
public:
  /// A free entity: no parent, id 1, EGOBJECT_FLAG_MODIFIED, no impl.
  IBaseEntity();
  IBaseEntity(IBaseEntity const&) = delete;
  IBaseEntity& operator=(IBaseEntity const&) = delete;
  /// Deletes the impl object, then the subtree (recording stored nodes).
  virtual ~IBaseEntity();

  /// Makes `child` the last child of this entity (a previous parent is not
  /// told) and, inside a project whose device is not loading, gives each node
  /// of its subtree with an id below 2 a fresh id from the project, in
  /// pre-order. Null is ignored.
  virtual void AddChild(IBaseEntity* child);
  /// Deletes `child` and its subtree, recording stored nodes, and removes it
  /// from the children; false (and nothing deleted) when it is not a child.
  virtual bool DeleteChild(IBaseEntity* child);
  /// Deletes every child and its subtree, recording stored nodes.
  virtual void DeleteAllChild();
  /// With `set` false, clears the bits of `flag`. With `set` true and a
  /// facade installed, sets them after the facade rules: EGOBJECT_FLAG_MODIFIED
  /// is dropped for a NO_MODIFY entity or while the device loads (in a
  /// project with a device), and MODIFIED and SWAPPED clear each other unless
  /// both are set. Without a facade, ORs them in.
  virtual void SetObjectFlag(bool set, EGOBJECT_FLAG flag);
  /// A new impl object for GetBaseEntityImpl; the default is a plain
  /// IBaseEntityImpl. Hosts override it to create their own type.
  virtual IBaseEntityImpl* CreateBaseEntityImpl();

  /// The entity whose child list holds this one; null for a root.
  IBaseEntity* GetParent() const { return m_pParent; }
  /// The children in insertion order.
  std::vector<IBaseEntity*> const& GetAllChild() const { return m_vecChildren; }
  long long GetObjectID() const { return m_nObjectID; }
  /// Sets the id; the project's counter is not touched.
  void SetObjectID(long long id) { m_nObjectID = id; }
  /// True when every bit of `flag` is set.
  bool HasObjectFlag(EGOBJECT_FLAG flag) const { return (m_eObjectFlag & flag) == flag; }
  /// The root of the tree when it is a project, else null. Walks to the root.
  IBaseProject* GetProject() const;
  /// The device of GetProject(); null without a project or device.
  GDBDevice* GetDBDevice() const;
  /// The impl object, created through CreateBaseEntityImpl when there is
  /// none. With `load` true, a facade installed and EGOBJECT_FLAG_SWAPPED set,
  /// a new impl object is filled through the facade's LoadEntityData (the
  /// flag is left to the facade). Null only when CreateBaseEntityImpl gives
  /// null.
  IBaseEntityImpl* GetBaseEntityImpl(bool load);
  /// Replaces the impl object: the current one is deleted unless it is
  /// `impl` itself, and `impl` is attached to this entity. Null just deletes
  /// the current one.
  void SetImplObject(IBaseEntityImpl* impl);
  /// With a facade installed: hands the data to the facade's
  /// SwapOutEntityData, sets EGOBJECT_FLAG_SWAPPED, clears
  /// EGOBJECT_FLAG_MODIFIED (both through SetObjectFlag) and deletes the impl
  /// object. Does nothing without a facade.
  void SwapDataToDisk();

  /// Appends `entity` and every node of its subtree to `out`, in pre-order
  /// (inner nodes included); `out` is not cleared. Null appends nothing.
  static void GetAllLeafChild(IBaseEntity* entity, std::vector<IBaseEntity*>& out);

private:
  // Records the deletion of `entity` by the rules of a single deletion,
  // finding the device from the entity itself.
  static void RegisterDeleteObjectToDB(IBaseEntity* entity);
  // Records and deletes `nodes` (children of the live `anchor`) and their
  // subtrees in pre-order, without recursion.
  static void DeleteSubtrees(IBaseEntity* anchor, IBaseEntity* const* nodes, std::size_t count);
  // Sets (ORs in) or clears the bits of `flag`, with no rules.
  void _SetObjectFlagFunc(bool set, EGOBJECT_FLAG flag);
  // With a facade installed: drops EGOBJECT_FLAG_MODIFIED from `flag` when
  // the rules forbid it and sets `clearMask` to the bits that setting `flag`
  // clears. Without a facade, leaves both alone.
  void _DealWithObjectFlag(EGOBJECT_FLAG& flag, EGOBJECT_FLAG& clearMask);

  std::vector<IBaseEntity*> m_vecChildren;
  IBaseEntity* m_pParent;
  IBaseEntityImpl* m_pImpl;
  long long m_nObjectID;
  EGOBJECT_FLAG m_eObjectFlag;
};

} // namespace zrn

#endif // ZRN_OBJECT_ENTITY_H
