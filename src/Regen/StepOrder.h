// The steps of one regeneration pass: one per step identity (object id, step
// key), and the order they run in.
#ifndef ZRN_SRC_REGEN_STEPORDER_H
#define ZRN_SRC_REGEN_STEPORDER_H

#include <zrn/Regen/RegenObject.h>

#include "Regen/AtomGraph.h"
#include "Regen/SlotIndex.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace zrn::detail {

/// Asks the atoms of a pass for their steps, merges the steps of one
/// identity, and orders them.
///
/// The order: steps and the step-less atoms between them form a graph (a
/// step leads to the steps reached from any of its atoms through step-less
/// atoms). Links that close a cycle in a depth-first walk from the roots are
/// ignored. A step's round is the length of the longest chain of steps
/// leading to it; rounds run in turn. In round 0 the steps are in the order of
/// their last appearance in a depth-first walk of the roots through
/// step-less atoms. In a later round, each step goes with its owner (of the
/// steps of the round before that lead to it, the one that runs last): steps
/// follow their owners' order, and among one owner's, the order in which a
/// depth-first walk from the owner first meets them. A step runs with the
/// atom through which it was first met (its last root atom in round 0).
/// Everything takes time linear in atoms and links. When the atoms form a
/// forest and each step belongs to one atom, all of this comes down to a
/// breadth-first walk over the steps, which is taken directly.
class StepOrder {
public:
  /// Finds the steps of `graph`'s atoms and orders them.
  void Plan(AtomGraph const& graph, IRegenObjectContainer& container);
  /// Executes the steps in order and records each target as regenerated.
  void Execute(AtomGraph const& graph, GRegenContext& context);
  /// Forgets the pass's steps and the objects they hold.
  void Reset();

private:
  struct Identity {
    unsigned long long object;
    long long key;
    std::uint32_t firstNode; // the atoms giving this step, linked by m_nextOfIdentity
    std::uint32_t lastNode;
    std::uint32_t primary = kNone; // the atom the step runs with
  };
  // A walk over the links of one vertex (an identity's atoms, or one
  // step-less atom): the atom whose links are being read and the next link.
  struct Cursor {
    std::uint32_t vertex;
    std::uint32_t node;
    std::uint32_t edge;
  };
  enum : std::uint8_t { kUnseen, kOnStack, kFinished };

  void FindSteps(AtomGraph const& graph, IRegenObjectContainer& container);
  void OrderForest(AtomGraph const& graph);
  void TakeStepsBelow(AtomGraph const& graph, std::uint32_t firstEdge);
  void DropCycleLinks(AtomGraph const& graph);
  void ComputeRounds(AtomGraph const& graph);
  void OrderFirstRound(AtomGraph const& graph);
  void OrderRound(AtomGraph const& graph, int round, std::size_t begin, std::size_t end);
  void Claim(std::uint32_t identity, std::uint32_t node);

  // Vertices: identities first, then one per atom (used for step-less ones).
  std::uint32_t VertexOf(std::uint32_t node) const {
    std::uint32_t const identity = m_identityOf[node];
    return identity != kNone ? identity : IdentityCount() + node;
  }
  std::uint32_t IdentityCount() const { return static_cast<std::uint32_t>(m_identities.size()); }
  bool IsStep(std::uint32_t vertex) const { return vertex < IdentityCount(); }
  Cursor Open(AtomGraph const& graph, std::uint32_t vertex) const;
  bool Advance(AtomGraph const& graph, Cursor& cursor, std::uint32_t& edge) const;

  std::vector<Identity> m_identities;
  bool m_bOneAtomPerStep = true;
  SlotIndex m_identityIndex;
  // Per atom.
  std::vector<std::uint32_t> m_identityOf;
  std::vector<std::uint32_t> m_nextOfIdentity;
  std::vector<IRegenStep*> m_steps;
  std::vector<std::shared_ptr<IRegenableObject>> m_objects;
  // Per link: ignored because it closes a cycle.
  std::vector<std::uint8_t> m_dropped;
  // Per vertex.
  std::vector<int> m_round;
  std::vector<std::uint8_t> m_mark;
  // The run order (identities), and scratch for the walks.
  std::vector<std::uint32_t> m_run;
  std::vector<Cursor> m_stack;
  std::vector<std::uint32_t> m_finished;
  std::vector<std::uint32_t> m_pending;
  std::vector<std::uint32_t> m_edges;
  std::vector<std::pair<std::size_t, std::size_t>> m_segments;
};

} // namespace zrn::detail

#endif // ZRN_SRC_REGEN_STEPORDER_H
