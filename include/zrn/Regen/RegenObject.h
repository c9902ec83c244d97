// What a host implements to have its model regenerated: its objects
// (IRegenableObject), the steps that rebuild them (IRegenStep) and the
// container that finds and deletes them (IRegenObjectContainer).
//
// A host marks changes with MarkAtom and calls Regenerate. A pass first
// propagates the changes along the relation database, letting each affected
// object react and mark further changes; then it asks the affected objects
// for steps, orders them so that every step runs after the steps that lead
// to it and none runs twice, and executes them.
//
//   class Wall : public zrn::IRegenableObject {
//   public:
//     unsigned long long GetRegenId() override { return m_id; }
//     void CollectRelations(zrn::IRelationContext& context) override {
//       context.AddRelation(m_id, m_floorId, kStandsOn);
//     }
//     bool OnAtomChanged(zrn::GRegenAtom const& atom) override {
//       if (atom.TargetId() != m_id)  // the floor changed: so does the wall
//         m_model->MarkAtom(zrn::GRegenAtom(m_id, L"shape"));
//       return true;
//     }
//     zrn::IRegenStep* CreateRegenStep(zrn::GRegenAtom const&) override { return &m_rebuild; }
//     void OnRemoveObject(zrn::GRemoveObjectContext&) override {}
//     ...
//   };
//
//   zrn::GCollectRelationContext collect(*model.GetRelationDb());
//   wall.CollectRelations(collect);
//   model.MarkAtom(zrn::GRegenAtom(floorId, L"height"));
//   zrn::GRegenContext context;
//   model.Regenerate(context);  // the floor's step (if it has one), then m_rebuild
#ifndef ZRN_REGEN_REGENOBJECT_H
#define ZRN_REGEN_REGENOBJECT_H

#include <zrn/Export.h>
#include <zrn/Regen/ObjectRelation.h>
#include <zrn/Regen/RegenAtom.h>
#include <zrn/Regen/RegenEngine.h>
#include <zrn/Regen/RelationContext.h>

#include <memory>

namespace zrn {

class IRegenStep;

/// An object of the host's model, as regeneration sees it.
class ZRN_API IRegenableObject {
public:
  virtual ~IRegenableObject();
  /// The object's identity; two steps are the same step when their objects'
  /// ids and their step keys are equal. Must not change during a pass.
  virtual unsigned long long GetRegenId() = 0;
  /// Reports every relation in which this object depends on another, as
  /// AddRelation(own id, id depended on, kind).
  virtual void CollectRelations(IRelationContext& context) = 0;
  /// Reacts to a changed atom (this object's own or one of an object it
  /// depends on). May call MarkAtom on the container to name further
  /// changes. True records the atom's target as updated.
  virtual bool OnAtomChanged(GRegenAtom const& atom) = 0;
  /// The step that regenerates this object for `atom`, or null. The host
  /// keeps steps alive at least until Regenerate returns.
  virtual IRegenStep* CreateRegenStep(GRegenAtom const& atom) = 0;
  /// The object with the context's target id is being removed; mark with
  /// MarkRemove the ids that must be deleted with it.
  virtual void OnRemoveObject(GRemoveObjectContext& context) = 0;
};

/// One regeneration step of one object.
class ZRN_API IRegenStep {
public:
  virtual ~IRegenStep();
  /// The kind of step; with the object's GetRegenId, the step's identity.
  /// Must not change during a pass.
  virtual long long GetStepKey() = 0;
  /// Performs the step for `object` and `atom`.
  virtual void Execute(IRegenableObject* object, GRegenAtom const& atom) = 0;
};

/// The host's model container. Owns the relation database and the engine
/// that runs passes over it.
///
/// Not thread-safe: a container is used from one thread at a time, and its
/// callbacks run on the calling thread inside a pass.
class ZRN_API IRegenObjectContainer {
public:
  IRegenObjectContainer();
  IRegenObjectContainer(IRegenObjectContainer const&) = delete;
  IRegenObjectContainer& operator=(IRegenObjectContainer const&) = delete;
  virtual ~IRegenObjectContainer();

  /// Runs one pass over the atoms marked since the last one. A derived
  /// container may override this and call it. A call made from inside a
  /// running pass does nothing.
  virtual void Regenerate(GRegenContext& context);
  /// The object with `id`, or empty.
  virtual std::shared_ptr<IRegenableObject> FindObject(unsigned long long id) = 0;
  /// Deletes the object with `id` from the host's model.
  virtual void DeleteObject(unsigned long long id) = 0;

  /// The relations between the container's objects, for the host to fill
  /// (through a GCollectRelationContext) and inspect. Never null.
  GRegenObjectRelationDb* GetRelationDb() const { return m_pRelationDb; }
  /// The engine that runs this container's passes, for its options and the
  /// cycles the last pass met.
  GRegenEngine& GetRegenEngine() const { return *m_pEngine; }
  /// Names a change for the next pass. Between passes an atom equal to one
  /// already marked is ignored; while changes propagate, the atom becomes a
  /// further change of the object being handled; while steps run, it is
  /// ignored.
  void MarkAtom(GRegenAtom const& atom);
  /// Removes the object with `id`: its relations go from the database, then
  /// it and its dependents say which objects to delete, and DeleteObject
  /// deletes those. The id is reported as deleted by the next pass.
  void RemoveObject(unsigned long long id);

private:
  GRegenObjectRelationDb* m_pRelationDb;
  GRegenEngine* m_pEngine;
};

} // namespace zrn

#endif // ZRN_REGEN_REGENOBJECT_H
