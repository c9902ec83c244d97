// Everything a regeneration pass keeps while it runs: the graph of atoms it
// met, the index that finds an atom's node, the depth-first walk, scratch
// for the dependents of the atom being handled, the cycles met and the
// steps. It lives as long as the engine and keeps its capacity between
// passes, so repeated passes do not fault in fresh pages.
#ifndef ZRN_SRC_REGEN_PASSSTATE_H
#define ZRN_SRC_REGEN_PASSSTATE_H

#include <zrn/Regen/ObjectRelation.h>
#include <zrn/Regen/RegenAtom.h>

#include "Regen/AtomGraph.h"
#include "Regen/SlotIndex.h"
#include "Regen/StepOrder.h"

#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace zrn::detail {

class PassState {
public:
  enum class Attached : std::uint8_t {
    New,    // a node was made for the atom
    Shared, // the atom already had a node, which is now also a child
    Same,   // the atom is the parent's own: nothing attached
    Cycle,  // the atom is being handled, up the path: nothing attached
  };
  using Dependent = std::pair<GRegenObjectRelation::RelationType, unsigned long long>;

  /// Adds a root node for `atom` unless a root holds an equal atom; false
  /// when one did.
  bool MarkRoot(GRegenAtom const& atom);

  /// Attaches `atom`, marked while `parent` was handled, as the parent's
  /// child. Shared: an atom met before gets a link to its node. Per path: it
  /// gets a node of its own unless it is being handled (a cycle). `met` is
  /// the node attached or, for a cycle, the node that holds the atom.
  Attached AttachChild(std::uint32_t parent, GRegenAtom const& atom, bool perPath,
                       std::uint32_t& met);

  /// The atoms marked while the current atom is handled, in order.
  void AddPending(GRegenAtom const& atom) {
    m_pending.Add([&](GRegenAtom& a) { a = atom; }, [&] { return atom; });
  }
  ReusedList<GRegenAtom> const& Pending() const { return m_pending; }
  void ClearPending() { m_pending.clear(); }

  /// Walks the graph depth first from the roots without recursion, calling
  /// `handle(node)` when a node is first reached; `handle` attaches the
  /// node's children and returns whether to go into them. Per path, every
  /// node is reached once (the graph is a tree); shared, a node reached again
  /// is not handled again.
  template <class Handle> void Walk(bool perPath, Handle&& handle) {
    m_stack.clear();
    for (std::size_t r = 0; r < m_graph.roots.size(); ++r) {
      Enter(m_graph.roots[r], perPath, handle);
      while (!m_stack.empty()) {
        Frame& frame = m_stack.back();
        if (frame.edge == kNone) {
          m_graph.nodes[frame.node].state = AtomNode::State::Done;
          m_stack.pop_back();
          continue;
        }
        std::uint32_t const child = m_graph.edges[frame.edge].to;
        frame.edge = m_graph.edges[frame.edge].next;
        Enter(child, perPath, handle);
      }
    }
  }

  GRegenAtom const& Atom(std::uint32_t node) const { return m_graph.nodes[node].atom; }
  /// Scratch for the dependents of the atom being handled.
  std::vector<Dependent>& Dependents() { return m_dependents; }
  /// Records `id` as updated; the ids reach the context in one batch, in
  /// ascending order, when FlushUpdated is called.
  void NoteUpdated(unsigned long long id) {
    if (m_updated.empty() || m_updated.back() != id)
      m_updated.push_back(id);
  }
  /// Adds the ids noted since the last call to the context's updated ids.
  void FlushUpdated(GRegenContext& context);
  /// The ids the last FlushUpdated added, ascending and distinct, when the
  /// context held no updated id before it (then they are the whole set);
  /// null otherwise. Kept until the next flush.
  std::vector<unsigned long long> const* FlushedWholeSet() const {
    return m_bFlushedWhole ? &m_flushed : nullptr;
  }

  /// True the first time a cycle (the atom of `repeated` marked while
  /// `markedBy` was handled) is met in this pass.
  bool NoteCycle(std::uint32_t repeated, std::uint32_t markedBy);

  /// Finds and orders the steps of the atoms met.
  void PlanSteps(IRegenObjectContainer& container) { m_steps.Plan(m_graph, container); }
  /// Runs the steps in order.
  void ExecuteSteps(GRegenContext& context) { m_steps.Execute(m_graph, context); }
  /// Forgets the pass: its atoms, roots, steps and the objects they hold.
  void Reset();

private:
  void SortUpdated();

  struct Frame {
    std::uint32_t node;
    std::uint32_t edge; // the next child link to follow
  };

  // An atom as the index knows it: its target and interned property id.
  struct Key {
    unsigned long long target;
    std::uint32_t property;
    std::size_t hash;
  };

  // Defined before its first use: its return type is deduced.
  auto Matches(Key const& key) const {
    return [this, key](std::uint32_t node) {
      AtomNode const& n = m_graph.nodes[node];
      return n.property == key.property && n.atom.TargetId() == key.target;
    };
  }

  template <class Handle> void Enter(std::uint32_t node, bool perPath, Handle& handle) {
    AtomNode& n = m_graph.nodes[node];
    if (n.state != AtomNode::State::Waiting)
      return;
    n.state = AtomNode::State::Active;
    if (perPath) // the index then tells, per atom, the node of the path that holds it
      m_atoms.Insert(n.hash, Matches(Key{n.atom.TargetId(), n.property, n.hash})) = node;
    if (handle(node))
      m_stack.push_back(Frame{node, m_graph.nodes[node].firstEdge});
    else
      m_graph.nodes[node].state = AtomNode::State::Done;
  }

  Key KeyOf(GRegenAtom const& atom);
  std::uint32_t Intern(std::wstring const& property);

  AtomGraph m_graph;
  // The property ids met in this pass: most passes meet few, so the last one
  // found is tried first and the index is seldom asked.
  std::vector<std::wstring> m_properties;
  SlotIndex m_propertyIndex;
  std::uint32_t m_lastProperty = kNone;
  SlotIndex m_atoms; // atoms to nodes: every node when shared, the last entered per path
  ReusedList<GRegenAtom> m_pending;
  std::vector<Frame> m_stack;
  std::vector<Dependent> m_dependents;
  std::vector<unsigned long long> m_updated;
  std::vector<std::uint64_t> m_bitmap; // sorts the updated ids of a dense range
  std::vector<unsigned long long> m_flushed;
  bool m_bFlushedWhole = false;
  std::unordered_multimap<std::size_t, std::pair<std::uint32_t, std::uint32_t>> m_cycles;
  StepOrder m_steps;
};

} // namespace zrn::detail

#endif // ZRN_SRC_REGEN_PASSSTATE_H
