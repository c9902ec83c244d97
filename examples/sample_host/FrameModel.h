// The regeneration wiring of the frame: the container that finds the frame's
// objects by id, links each to the objects it uses, fills the relation
// database and records what a pass did, in order.
#ifndef ZRN_EXAMPLES_SAMPLE_HOST_FRAMEMODEL_H
#define ZRN_EXAMPLES_SAMPLE_HOST_FRAMEMODEL_H

#include "FrameObjects.h"

#include <zrn/Object/Project.h>
#include <zrn/Regen/RegenObject.h>

#include <cstddef>
#include <string>
#include <vector>

/// The regeneration container over one project's frame. It does not own the
/// entities: the project does, and must outlive the model.
///
/// Invariant once attached: every object of the tree is indexed by its id,
/// each bay knows the bay before it, the totals know the last bay, and the
/// relation database holds every object's relations. Used by one thread at a
/// time.
class CFrameModel : public zrn::IRegenObjectContainer {
public:
  /// Indexes the tree of `project`, links the objects and collects their
  /// relations. False, with `error` saying why, when the tree is not a frame
  /// this host built (no parameters, no bay, no totals, unknown objects,
  /// scattered ids).
  bool Attach(zrn::IBaseProject& project, std::string& error);

  CParameters& Parameters() const { return *m_parameters; }
  CTotals& Totals() const { return *m_totals; }
  std::size_t BayCount() const { return m_bayCount; }
  /// Every object of the frame, in increasing id order.
  std::vector<CFrameObject*> const& Objects() const { return m_objects; }
  /// The object with `id`; null when there is none.
  CFrameObject* Find(unsigned long long id) const {
    return id < m_byId.size() ? m_byId[id] : nullptr;
  }

  /// Runs a pass over the marked changes and records its orders afresh.
  void Regenerate(zrn::GRegenContext& context) override;
  /// The objects that reacted to a change of their own, in the order the
  /// pass propagated to them.
  std::vector<unsigned long long> const& UpdateOrder() const { return m_updateOrder; }
  /// The objects whose step ran, in run order.
  std::vector<unsigned long long> const& RunOrder() const { return m_runOrder; }
  /// How many of the objects run had values that changed.
  std::size_t ChangedCount() const { return m_changed; }

  /// Called by the objects during a pass.
  void NoteUpdated(unsigned long long id) { m_updateOrder.push_back(id); }
  void NoteRun(unsigned long long id, bool changed);

  std::shared_ptr<zrn::IRegenableObject> FindObject(unsigned long long id) override;
  void DeleteObject(unsigned long long id) override;

private:
  bool Index(zrn::IBaseProject& project, std::string& error);
  bool Link(zrn::IBaseProject& project, std::string& error);

  std::vector<CFrameObject*> m_byId; // by object id; ids are dense
  std::vector<CFrameObject*> m_objects;
  zrn::IBaseProject* m_project = nullptr;
  CParameters* m_parameters = nullptr;
  CTotals* m_totals = nullptr;
  std::size_t m_bayCount = 0;
  std::vector<unsigned long long> m_updateOrder;
  std::vector<unsigned long long> m_runOrder;
  std::size_t m_changed = 0;
};

#endif
