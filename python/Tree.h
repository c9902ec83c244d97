// The Python side of entities: the reference an Entity, its Props and its
// Children share, and the functions that make wrappers.
#ifndef ZRN_PYTHON_TREE_H
#define ZRN_PYTHON_TREE_H

#include "ProjectState.h"

#include <pybind11/pybind11.h>

#include <zrn/Store/PropertyEntity.h>

#include <memory>

namespace zrn::python {

/// One entity of an open project, as Python objects hold it: the shared
/// project state keeps the tree alive, and the id finds the entity again
/// after deletions elsewhere in the tree. Use under the project's lock.
class CEntityRef {
public:
  CEntityRef(std::shared_ptr<CProjectState> state, IBaseEntity* entity);

  /// The entity; RuntimeError when the project is closed or the entity was
  /// deleted.
  IBaseEntity& Resolve() {
    if (m_generation != m_state->Generation())
      Refresh();
    return *m_entity;
  }
  CProjectState& State() const { return *m_state; }
  std::shared_ptr<CProjectState> const& SharedState() const { return m_state; }
  long long Id() const { return m_id; }
  /// The entity as a frame object or a property entity; null when it is
  /// neither. Valid after Resolve.
  CFrameObject* Frame() const { return m_frame; }
  CPropertyEntity* Properties() const { return m_properties; }

private:
  void Refresh();

  std::shared_ptr<CProjectState> m_state;
  IBaseEntity* m_entity;
  CFrameObject* m_frame;
  CPropertyEntity* m_properties;
  long long m_id;
  unsigned long long m_generation;
};

/// Holds the lock of a reference's project for one binding call and gives
/// its entity (RuntimeError when the project is closed or the entity gone).
class CLockedEntity {
public:
  explicit CLockedEntity(CEntityRef& ref)
      : m_ref(ref), m_lock(ref.State(), false), m_entity(ref.Resolve()) {}
  /// Takes the library's lock too, for calls that reach the store or the
  /// process-wide property schemes.
  void Library() { m_lock.Library(); }
  CEntityRef& Ref() const { return m_ref; }
  IBaseEntity& operator*() const { return m_entity; }
  IBaseEntity* operator->() const { return &m_entity; }

private:
  CEntityRef& m_ref;
  CProjectLock m_lock;
  IBaseEntity& m_entity;
};

/// zrn.Entity: a reference plus its props object, made once.
struct SEntity {
  std::shared_ptr<CEntityRef> ref;
  pybind11::object props;
};

/// A new zrn.Entity for `entity` of `state`'s tree.
pybind11::object WrapEntity(std::shared_ptr<CProjectState> const& state, IBaseEntity* entity);

/// The type id of `entity` in the module's store facade; -1 when its class
/// is not registered.
int TypeIdOf(IBaseEntity const& entity);

/// Deletes `entity` and its subtree from an open project, through the
/// frame model when it is one of its objects (so that the removal cascades
/// and is reported by the next regenerate). Call under both locks.
void RemoveEntity(CProjectState& state, IBaseEntity& entity);

/// Defines zrn.Entity, zrn.Children and zrn.Props.
void BindTree(pybind11::module_& module);
/// A new zrn.Props over `ref`'s entity.
pybind11::object MakeProps(std::shared_ptr<CEntityRef> const& ref);
/// Defines zrn.Props (Props.cpp).
void BindProps(pybind11::module_& module);

} // namespace zrn::python

#endif
