// The steps of one regeneration pass: a forest built from the atom trees and
// the run list it is placed into.
#ifndef ZRN_SRC_REGEN_STEPPLAN_H
#define ZRN_SRC_REGEN_STEPPLAN_H

#include <zrn/Regen/RegenObject.h>

#include "Regen/RunIndex.h"

#include <cstddef>
#include <deque>
#include <memory>
#include <memory_resource>
#include <unordered_set>
#include <vector>

namespace zrn {

struct GRegenAtomNode;

struct GRegenStepNode {
  IRegenStep* step;
  GRegenAtom const* atom; // lives in the atom trees, which outlive the plan
  std::shared_ptr<IRegenableObject> object;
  StepIdentity id;
  GRegenStepNode* parent = nullptr;
  std::size_t firstEdge; // children, as a list of edges in the plan
  std::size_t lastEdge;
  std::size_t childCount = 0;
  // The run list, doubly linked; seq orders the nodes in it.
  GRegenStepNode* prev = nullptr;
  GRegenStepNode* next = nullptr;
  unsigned long long seq = 0;
  bool inRun = false;
};

/// Builds, orders and executes the steps of a pass; Reset makes it ready for
/// the next one.
///
/// The run order is breadth first over the step forest, except that a step
/// met again moves to the end together with the nodes below it that
/// followed it, so that it runs after every step that leads to it. "Met
/// again" is found through an index by identity, and "already a child" through
/// an index by (parent, identity), so placing n nodes takes O(n) expected time
/// when no step recurs.
class GRegenStepPlan {
public:
  GRegenStepPlan(IRegenObjectContainer& container, std::pmr::memory_resource* memory);
  GRegenStepPlan(GRegenStepPlan const&) = delete;
  GRegenStepPlan& operator=(GRegenStepPlan const&) = delete;

  /// Asks every atom of the trees from `firstRoot` for its step;
  /// `atomCount` bounds the number of steps, for sizing the indexes.
  void BuildForest(GRegenAtomNode* firstRoot, std::size_t atomCount);
  /// Orders the forest's steps into the run list.
  void PlaceAll();
  /// Executes the run list in order and records each target as regenerated.
  void Execute(GRegenContext& context);
  /// Forgets the pass's steps (and the objects they hold).
  void Reset();

private:
  static constexpr std::size_t kNoEdge = static_cast<std::size_t>(-1);
  static constexpr std::size_t kScanLimit = 16;
  static constexpr std::size_t kPlacementBudgetPerNode = 64;
  struct Edge {
    GRegenStepNode* child;
    std::size_t next;
  };
  struct ChildKey {
    GRegenStepNode const* parent;
    StepIdentity id;
    bool operator==(ChildKey const&) const = default;
  };
  struct ChildKeyHash {
    std::size_t operator()(ChildKey const& key) const;
  };

  GRegenStepNode* MakeStep(GRegenAtomNode const& atomNode);
  bool HasChildLike(GRegenStepNode const* parent, StepIdentity const& id) const;
  bool AttachChild(GRegenStepNode* parent, GRegenStepNode* child);
  void AddEdge(GRegenStepNode* parent, GRegenStepNode* child);
  void Place(GRegenStepNode* node);
  void AdoptChildren(GRegenStepNode const* from, GRegenStepNode* to);
  void DropFollowingDescendants(GRegenStepNode* node);
  void PlaceBreadthFirst();
  void Append(GRegenStepNode* node);
  void Unlink(GRegenStepNode* node);
  static bool IsAncestor(GRegenStepNode const* candidate, GRegenStepNode const* node);

  IRegenObjectContainer& m_container;
  std::pmr::deque<GRegenStepNode> m_nodes;
  std::vector<Edge> m_edges;
  std::vector<GRegenStepNode*> m_roots;
  std::pmr::unordered_set<ChildKey, ChildKeyHash> m_childIds;
  RunIndex m_runIndex;
  std::vector<GRegenStepNode*> m_expansion, m_taken;
  GRegenStepNode* m_runHead = nullptr;
  GRegenStepNode* m_runTail = nullptr;
  unsigned long long m_nextSeq = 0;
  std::size_t m_forestEdges = 0; // edges below this index are the forest as built
  std::size_t m_placements = 0;
  bool m_bCyclic = false;
  std::vector<GRegenStepNode*> m_walk; // scratch for subtree walks
  struct BuildFrame {
    GRegenAtomNode* next;
    GRegenStepNode* enclosing;
  };
  std::vector<BuildFrame> m_buildStack; // kept with its capacity, like the containers
};

} // namespace zrn

#endif // ZRN_SRC_REGEN_STEPPLAN_H
