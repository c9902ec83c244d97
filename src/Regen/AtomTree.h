// The atom trees of one regeneration pass: nodes live in a pool and link
// their children in order, so a pass allocates per chunk, not per node.
#ifndef ZRN_SRC_REGEN_ATOMTREE_H
#define ZRN_SRC_REGEN_ATOMTREE_H

#include <zrn/Regen/ObjectRelation.h>
#include <zrn/Regen/RegenAtom.h>
#include <zrn/Regen/RegenEngine.h>

#include "Regen/AtomSet.h"
#include "Regen/StepPlan.h"

#include <cstddef>
#include <deque>
#include <functional>
#include <memory_resource>
#include <utility>
#include <vector>

namespace zrn {

struct GRegenAtomNode {
  GRegenAtomNode(GRegenAtom const& a, std::size_t h, GRegenAtomNode* p)
      : atom(a), hash(h), parent(p) {}
  GRegenAtomNode(GRegenAtom&& a, std::size_t h, GRegenAtomNode* p)
      : atom(std::move(a)), hash(h), parent(p) {}

  HashedAtom Key() const { return {hash, &atom}; }

  GRegenAtom atom;
  std::size_t hash;
  GRegenAtomNode* parent;
  GRegenAtomNode* firstChild = nullptr;
  GRegenAtomNode* lastChild = nullptr;
  GRegenAtomNode* next = nullptr; // the next sibling
  bool onPath = false;            // an ancestor of the node being handled, or that node
};

/// The memory of a pass: the root list and every atom node below it, and the
/// step plan. It lives as long as the engine, and its pool keeps the blocks
/// of the largest pass so far: later passes do not fault in fresh pages.
struct GRegenEngine::AtomTrees {
  explicit AtomTrees(IRegenObjectContainer& container) : plan(container, &memory) {}

  std::pmr::unsynchronized_pool_resource memory;
  std::pmr::deque<GRegenAtomNode> pool{&memory};
  GRegenAtomNode* firstRoot = nullptr;
  GRegenAtomNode* lastRoot = nullptr;
  AtomIndex rootAtoms; // to find an equal root in constant time
  // Scratch for propagation: the atoms met so far (those of the path being
  // handled carry onPath), and the dependents of the current target.
  AtomIndex path;
  std::vector<std::pair<GRegenObjectRelation::RelationType, unsigned long long>> dependents;

  template <class A> GRegenAtomNode* AddChild(GRegenAtomNode* parent, A&& atom, std::size_t hash) {
    GRegenAtomNode* node = &pool.emplace_back(std::forward<A>(atom), hash, parent);
    GRegenAtomNode*& first = parent ? parent->firstChild : firstRoot;
    GRegenAtomNode*& last = parent ? parent->lastChild : lastRoot;
    (last ? last->next : first) = node;
    last = node;
    return node;
  }

  GRegenStepPlan plan;
  // The depth-first walk's stack, kept with its capacity: a chain a million
  // deep would otherwise fault in its pages again at every pass.
  struct Frame {
    GRegenAtomNode* next;
    GRegenAtomNode* owner;
  };
  std::vector<Frame> stack;

  void Clear() {
    plan.Reset();
    rootAtoms.Clear();
    path.Clear();
    firstRoot = lastRoot = nullptr;
    pool.clear();
  }
};

} // namespace zrn

#endif // ZRN_SRC_REGEN_ATOMTREE_H
