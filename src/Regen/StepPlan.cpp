#include "Regen/StepPlan.h"

#include <zrn/Regen/RegenEngine.h>

#include "Regen/AtomTree.h"

#include <functional>

namespace zrn {

std::size_t GRegenStepPlan::ChildKeyHash::operator()(ChildKey const& key) const {
  return HashIdentity(key.id) ^ std::hash<void const*>()(key.parent);
}

GRegenStepPlan::GRegenStepPlan(IRegenObjectContainer& container, std::pmr::memory_resource* memory)
    : m_container(container), m_nodes(memory), m_childIds(memory) {}

void GRegenStepPlan::Reset() {
  m_nodes.clear();
  m_edges.clear();
  m_roots.clear();
  m_childIds.clear();
  m_runIndex.Clear();
  m_runHead = m_runTail = nullptr;
  m_nextSeq = 0;
  m_forestEdges = 0;
  m_placements = 0;
  m_bCyclic = false;
}

GRegenStepNode* GRegenStepPlan::MakeStep(GRegenAtomNode const& atomNode) {
  std::shared_ptr<IRegenableObject> object = m_container.FindObject(atomNode.atom.TargetId());
  if (!object)
    return nullptr;
  IRegenStep* step = object->CreateRegenStep(atomNode.atom);
  if (!step)
    return nullptr;
  StepIdentity const id{object->GetRegenId(), step->GetStepKey()};
  return &m_nodes.emplace_back(
      GRegenStepNode{step, &atomNode.atom, std::move(object), id, nullptr, kNoEdge, kNoEdge});
}

bool GRegenStepPlan::HasChildLike(GRegenStepNode const* parent, StepIdentity const& id) const {
  if (parent->childCount > kScanLimit)
    return m_childIds.contains(ChildKey{parent, id});
  for (std::size_t e = parent->firstEdge; e != kNoEdge; e = m_edges[e].next)
    if (m_edges[e].child->id == id)
      return true;
  return false;
}

// Past kScanLimit children, a parent's children are indexed.
void GRegenStepPlan::AddEdge(GRegenStepNode* parent, GRegenStepNode* child) {
  m_edges.push_back(Edge{child, kNoEdge});
  std::size_t const index = m_edges.size() - 1;
  (parent->lastEdge == kNoEdge ? parent->firstEdge : m_edges[parent->lastEdge].next) = index;
  parent->lastEdge = index;
  if (++parent->childCount == kScanLimit + 1) {
    for (std::size_t e = parent->firstEdge; e != kNoEdge; e = m_edges[e].next)
      m_childIds.insert(ChildKey{parent, m_edges[e].child->id});
  } else if (parent->childCount > kScanLimit) {
    m_childIds.insert(ChildKey{parent, child->id});
  }
}

// A node whose parent already has a child of the same identity stays
// unattached, and so does everything built beneath it.
bool GRegenStepPlan::AttachChild(GRegenStepNode* parent, GRegenStepNode* child) {
  if (HasChildLike(parent, child->id))
    return false;
  AddEdge(parent, child);
  child->parent = parent;
  return true;
}

void GRegenStepPlan::BuildForest(GRegenAtomNode* firstRoot, std::size_t atomCount) {
  m_runIndex.Reserve(atomCount);
  std::vector<BuildFrame>& stack = m_buildStack;
  stack.assign(1, {firstRoot, nullptr});
  while (!stack.empty()) {
    GRegenAtomNode* atomNode = stack.back().next;
    if (!atomNode) {
      stack.pop_back();
      continue;
    }
    stack.back().next = atomNode->next;
    GRegenStepNode* const enclosing = stack.back().enclosing;
    GRegenStepNode* step = MakeStep(*atomNode);
    if (step && !enclosing)
      m_roots.push_back(step);
    else if (step)
      AttachChild(enclosing, step);
    if (atomNode->firstChild)
      stack.push_back({atomNode->firstChild, step ? step : enclosing});
  }
  m_forestEdges = m_edges.size();
}

void GRegenStepPlan::Append(GRegenStepNode* node) {
  node->prev = m_runTail;
  node->next = nullptr;
  (m_runTail ? m_runTail->next : m_runHead) = node;
  m_runTail = node;
  node->seq = ++m_nextSeq;
  node->inRun = true;
}

void GRegenStepPlan::Unlink(GRegenStepNode* node) {
  (node->prev ? node->prev->next : m_runHead) = node->next;
  (node->next ? node->next->prev : m_runTail) = node->prev;
  node->prev = node->next = nullptr;
  node->inRun = false;
}

bool GRegenStepPlan::IsAncestor(GRegenStepNode const* candidate, GRegenStepNode const* node) {
  for (GRegenStepNode const* p = node->parent; p; p = p->parent)
    if (p == candidate)
      return true;
  return false;
}

// Removes from the run list the nodes placed after `node` whose parent chain
// leads to it. Every parent link has a matching entry in the parent's child
// list, so following the entries whose child still points back finds exactly
// those descendants.
void GRegenStepPlan::DropFollowingDescendants(GRegenStepNode* node) {
  m_walk.assign(1, node);
  while (!m_walk.empty()) {
    GRegenStepNode* x = m_walk.back();
    m_walk.pop_back();
    for (std::size_t e = x->firstEdge; e != kNoEdge; e = m_edges[e].next) {
      GRegenStepNode* child = m_edges[e].child;
      if (child->parent != x)
        continue;
      if (child->inRun && child->seq > node->seq) {
        Unlink(child);
        m_runIndex.Erase(child->id);
      }
      m_walk.push_back(child);
    }
  }
}

// Moving a child that is an ancestor of `to` would close a loop of parent
// links: the steps depend on each other in a cycle.
void GRegenStepPlan::AdoptChildren(GRegenStepNode const* from, GRegenStepNode* to) {
  for (std::size_t e = from->firstEdge; e != kNoEdge; e = m_edges[e].next) {
    GRegenStepNode* child = m_edges[e].child;
    if (HasChildLike(to, child->id))
      continue;
    if (child == to || IsAncestor(child, to)) {
      m_bCyclic = true;
      return;
    }
    AddEdge(to, child);
    child->parent = to;
  }
}

// Placement ends on any forest whose steps do not depend on each other in a
// cycle; the budget makes sure that it ends on every other one too.
void GRegenStepPlan::Place(GRegenStepNode* node) {
  if (++m_placements > kPlacementBudgetPerNode * m_nodes.size() + 1024) {
    m_bCyclic = true;
    return;
  }
  auto const [slot, isNew] = m_runIndex.TryEmplace(node->id, node);
  if (isNew) {
    Append(node);
    return;
  }
  GRegenStepNode* earlier = *slot;
  Unlink(earlier);
  *slot = node;
  DropFollowingDescendants(earlier);
  Append(node);
  AdoptChildren(earlier, node);
}

void GRegenStepPlan::PlaceAll() {
  std::vector<GRegenStepNode*>& expansion = m_expansion;
  std::vector<GRegenStepNode*>& taken = m_taken;
  expansion.clear();
  for (std::size_t i = 0; i < m_roots.size() && !m_bCyclic; ++i) {
    Place(m_roots[i]);
    if (m_roots[i]->firstEdge != kNoEdge)
      expansion.push_back(m_roots[i]);
  }
  while (!expansion.empty() && !m_bCyclic) {
    taken.swap(expansion);
    expansion.clear();
    for (std::size_t i = 0; i < taken.size() && !m_bCyclic; ++i) {
      for (std::size_t e = taken[i]->firstEdge; e != kNoEdge && !m_bCyclic; e = m_edges[e].next) {
        GRegenStepNode* child = m_edges[e].child;
        Place(child);
        if (child->firstEdge != kNoEdge)
          expansion.push_back(child);
      }
    }
  }
  taken.clear();
  if (m_bCyclic)
    PlaceBreadthFirst();
}

// With steps in a cycle no order runs every step after all that lead to it,
// and moving subtrees would go round the cycle for ever. The plan then starts
// again over the forest as built: breadth first, a step met again moving to
// the end. Every step reached runs once.
void GRegenStepPlan::PlaceBreadthFirst() {
  for (GRegenStepNode& node : m_nodes)
    node.prev = node.next = nullptr, node.inRun = false;
  m_runHead = m_runTail = nullptr;
  m_runIndex.Clear();
  m_runIndex.Reserve(m_nodes.size());
  std::vector<GRegenStepNode*>& queue = m_expansion;
  queue.assign(m_roots.begin(), m_roots.end());
  for (std::size_t i = 0; i < queue.size(); ++i) {
    GRegenStepNode* node = queue[i];
    auto const [slot, isNew] = m_runIndex.TryEmplace(node->id, node);
    if (!isNew) {
      Unlink(*slot);
      *slot = node;
    }
    Append(node);
    for (std::size_t e = node->firstEdge; e != kNoEdge && e < m_forestEdges; e = m_edges[e].next)
      queue.push_back(m_edges[e].child);
  }
  queue.clear();
}

void GRegenStepPlan::Execute(GRegenContext& context) {
  for (GRegenStepNode* node = m_runHead; node; node = node->next) {
    node->step->Execute(node->object.get(), *node->atom);
    context.MarkRegened(node->atom->TargetId());
  }
}

} // namespace zrn
