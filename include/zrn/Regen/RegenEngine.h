// The engine behind IRegenObjectContainer: it keeps the atoms marked between
// passes and the ids removed since the last pass, and runs the passes.
// Hosts use it through the container; it is public so that its behaviour is
// documented in one place.
#ifndef ZRN_REGEN_REGENENGINE_H
#define ZRN_REGEN_REGENENGINE_H

#include <zrn/Export.h>
#include <zrn/Regen/RegenAtom.h>

#include <memory>
#include <set>
#include <vector>

namespace zrn {

class IRegenObjectContainer;
struct GRegenAtomNode; // defined inside the library

/// Runs regeneration passes for one container.
///
/// A pass has two phases. Propagation walks the marked atoms depth first:
/// each atom's target reacts, then each of its dependents in the relation
/// database (dependents that vanished or no longer report the target are
/// pruned from the database); atoms marked meanwhile become children of the
/// atom being handled, unless equal to it or to one of its ancestors, which
/// breaks cycles. An object reached along several paths is handled once per
/// path. Execution asks every atom of that tree for a step, keeps one step
/// per identity (object id, step key), places a step met again at a deeper
/// level behind everything that leads to it, and executes the steps in that
/// order.
///
/// Neither phase recurses: the depth of the dependency graph is bounded only
/// by memory. Not thread-safe; see IRegenObjectContainer.
class ZRN_API GRegenEngine {
public:
  explicit GRegenEngine(IRegenObjectContainer* container);
  GRegenEngine(GRegenEngine const&) = delete;
  GRegenEngine& operator=(GRegenEngine const&) = delete;
  ~GRegenEngine();

  /// See IRegenObjectContainer::MarkAtom.
  void MarkAtom(GRegenAtom const& atom);
  /// Runs a pass; see IRegenObjectContainer::Regenerate.
  void Regenerate(GRegenContext& context);
  /// See IRegenObjectContainer::RemoveObject.
  void RemoveObject(unsigned long long id);

  /// True while changes propagate.
  bool IsPropagating() const { return m_bPropagating; }
  /// True while steps are planned and executed.
  bool IsExecuting() const { return m_bExecuting; }

private:
  struct AtomTrees;

  void Propagate(GRegenContext& context);
  bool HandleAtom(GRegenAtomNode& node, GRegenContext& context);
  void NotifyDependents(GRegenAtom const& atom, GRegenContext& context);
  void AttachPending(GRegenAtomNode& node);
  void RunSteps(GRegenContext& context);
  void RefreshRelations(GRegenContext& context);
  void EndPass();

  bool m_bPropagating = false;
  bool m_bExecuting = false;
  std::unique_ptr<AtomTrees> m_pAtoms;
  std::vector<GRegenAtom> m_vecPending;
  IRegenObjectContainer* m_pContainer;
  std::set<unsigned long long> m_setRemoved;
};

} // namespace zrn

#endif // ZRN_REGEN_REGENENGINE_H
