// The engine behind IRegenObjectContainer: it keeps the atoms marked between
// passes and the ids removed since the last pass, and runs the passes.
// Hosts reach it through IRegenObjectContainer::GetRegenEngine to choose how
// changes propagate and to read the cycles the last pass met.
#ifndef ZRN_REGEN_REGENENGINE_H
#define ZRN_REGEN_REGENENGINE_H

#include <zrn/Export.h>
#include <zrn/Regen/RegenAtom.h>

#include <memory>
#include <set>
#include <vector>

namespace zrn {

class IRegenObjectContainer;

namespace detail {
class PassState;
class RemovalQueue;
} // namespace detail

/// A cycle met while changes propagated: `repeated` was marked again while
/// `markedBy` (a change that `repeated` led to) was being handled.
struct GRegenCycle {
  GRegenAtom repeated;
  GRegenAtom markedBy;
};

/// Runs regeneration passes for one container.
///
/// A pass has two phases. Propagation walks the marked atoms depth first:
/// each atom's target reacts, then each of its dependents in the relation
/// database (dependents that vanished or no longer report the target are
/// pruned from the database); atoms marked meanwhile become children of the
/// atom being handled, unless equal to it or to one of its ancestors, which
/// breaks cycles. By default an atom reached again shares the subtree built
/// the first time, so every (object, atom) reacts once per pass and a pass
/// costs time and memory linear in the atoms and relations it meets. With
/// per-path propagation an atom is handled again on every path that reaches
/// it (exponential on reconvergent models).
///
/// Execution asks every atom for a step, keeps one step per identity
/// (object id, step key), and runs each step once, after every step that
/// leads to it: by rounds of the longest chain of steps leading to it, and
/// within a round in the breadth-first order of the steps that lead to it.
///
/// No phase recurses, and neither does RemoveObject when the host removes
/// further objects from its callbacks: the depth of the dependency graph is
/// bounded only by memory. Not thread-safe; see IRegenObjectContainer.
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
  /// See IRegenObjectContainer::RemoveObject. Called again from a host
  /// callback of a removal, it looks the object and its relations up at once
  /// and queues the callbacks: queued removals run first in, first out, each
  /// after the DeleteObject calls of the removals before it.
  void RemoveObject(unsigned long long id);

  /// With `on`, an atom reached along several paths is handled again on each
  /// of them, so OnAtomChanged and CollectRelations are called once per path
  /// (the work grows with the number of paths). Off by default: each
  /// (object, atom) is handled once per pass. Takes effect at the next pass.
  void SetPerPathPropagation(bool on) { m_bPerPath = on; }
  bool IsPerPathPropagation() const { return m_bPerPath; }

  /// The cycles the last pass met, in the order met, each once. Each is also
  /// logged at LOG_LEVEL_TRIVIAL. Emptied when the next pass starts.
  std::vector<GRegenCycle> const& GetCycles() const { return m_vecCycles; }

  /// While true, MarkAtom adds a further change of the object being handled.
  bool IsPropagating() const { return m_bPropagating; }
  /// While true, MarkAtom is ignored.
  bool IsExecuting() const { return m_bExecuting; }

private:
  void Propagate();
  bool HandleAtom(unsigned node);
  void NotifyDependents(unsigned node);
  void AttachPending(unsigned node);
  void ReportCycle(unsigned repeated, unsigned markedBy);
  void RunSteps(GRegenContext& context);
  void RefreshRelations(GRegenContext& context);
  void EndPass();

  bool m_bPropagating = false;
  bool m_bExecuting = false;
  bool m_bPerPath = false;
  std::unique_ptr<detail::PassState> m_pPass; // also the atoms marked while one is handled
  IRegenObjectContainer* m_pContainer;
  std::set<unsigned long long> m_setRemoved;
  std::unique_ptr<detail::RemovalQueue> m_pRemovals;
  std::vector<GRegenCycle> m_vecCycles;
};

} // namespace zrn

#endif // ZRN_REGEN_REGENENGINE_H
