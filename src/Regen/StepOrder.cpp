#include "Regen/StepOrder.h"

#include <algorithm>
#include <cassert>

namespace zrn::detail {

void StepOrder::Plan(AtomGraph const& graph, IRegenObjectContainer& container) {
  FindSteps(graph, container);
  m_run.clear();
  if (m_identities.empty())
    return;
  if (graph.forest && m_bOneAtomPerStep) {
    OrderForest(graph);
    return;
  }
  DropCycleLinks(graph);
  ComputeRounds(graph);
  OrderFirstRound(graph);
  std::size_t begin = 0;
  std::size_t end = m_run.size();
  for (int round = 1; begin != end; ++round) {
    OrderRound(graph, round, begin, end);
    begin = end;
    end = m_run.size();
  }
  assert(m_run.size() == m_identities.size() && "every step is placed once");
}

// Asks every atom for its step, in the order the atoms were met; atoms whose
// steps have one identity are linked together.
void StepOrder::FindSteps(AtomGraph const& graph, IRegenObjectContainer& container) {
  std::size_t const count = graph.nodes.size();
  m_identityOf.assign(count, kNone);
  m_nextOfIdentity.assign(count, kNone);
  m_steps.assign(count, nullptr);
  m_objects.resize(count);
  m_bOneAtomPerStep = true;
  for (std::uint32_t node = 0; node < count; ++node) {
    GRegenAtom const& atom = graph.nodes[node].atom;
    std::shared_ptr<IRegenableObject> object = container.FindObject(atom.TargetId());
    IRegenStep* const step = object ? object->CreateRegenStep(atom) : nullptr;
    if (!step)
      continue;
    unsigned long long const id = object->GetRegenId();
    long long const key = step->GetStepKey();
    std::uint32_t& slot = m_identityIndex.Insert(
        GroupHash(id, static_cast<std::uint64_t>(key)),
        [&](std::uint32_t i) {
          return m_identities[i].object == id && m_identities[i].key == key;
        });
    if (slot == kNone) {
      slot = IdentityCount();
      m_identities.push_back(Identity{id, key, node, node});
    } else {
      m_bOneAtomPerStep = false;
      m_nextOfIdentity[m_identities[slot].lastNode] = node;
      m_identities[slot].lastNode = node;
    }
    m_identityOf[node] = slot;
    m_steps[node] = step;
    m_objects[node] = std::move(object);
  }
}

// In a forest whose steps each belong to one atom, a step's round is the
// number of steps above it and its only owner is the nearest step above it,
// so the rounds are a breadth-first walk over the steps: the steps below the
// roots, then those below each step in turn, each group in the order a
// depth-first walk through step-less atoms meets them.
void StepOrder::OrderForest(AtomGraph const& graph) {
  for (std::uint32_t root : graph.roots) {
    std::uint32_t const identity = m_identityOf[root];
    if (identity == kNone) {
      TakeStepsBelow(graph, graph.nodes[root].firstEdge);
    } else {
      m_identities[identity].primary = root;
      m_run.push_back(identity);
    }
  }
  for (std::size_t i = 0; i < m_run.size(); ++i)
    TakeStepsBelow(graph, graph.nodes[m_identities[m_run[i]].primary].firstEdge);
  assert(m_run.size() == m_identities.size() && "every step is placed once");
}

// Appends the nearest steps below the links from `firstEdge` on, depth first.
void StepOrder::TakeStepsBelow(AtomGraph const& graph, std::uint32_t firstEdge) {
  m_edges.assign(1, firstEdge);
  while (!m_edges.empty()) {
    std::uint32_t const edge = m_edges.back();
    if (edge == kNone) {
      m_edges.pop_back();
      continue;
    }
    std::uint32_t const node = graph.edges[edge].to;
    m_edges.back() = graph.edges[edge].next;
    std::uint32_t const identity = m_identityOf[node];
    if (identity == kNone) {
      m_edges.push_back(graph.nodes[node].firstEdge);
    } else {
      m_identities[identity].primary = node;
      m_run.push_back(identity);
    }
  }
}

StepOrder::Cursor StepOrder::Open(AtomGraph const& graph, std::uint32_t vertex) const {
  std::uint32_t node = vertex - IdentityCount();
  if (IsStep(vertex)) {
    Identity const& identity = m_identities[vertex];
    node = identity.primary != kNone ? identity.primary : identity.firstNode;
  }
  return Cursor{vertex, node, graph.nodes[node].firstEdge};
}

// The next link of the cursor's vertex: an identity's links are those of its
// primary atom, then those of its other atoms in the order met.
bool StepOrder::Advance(AtomGraph const& graph, Cursor& cursor, std::uint32_t& edge) const {
  while (cursor.edge == kNone) {
    if (!IsStep(cursor.vertex))
      return false;
    Identity const& identity = m_identities[cursor.vertex];
    std::uint32_t next =
        cursor.node == identity.primary ? identity.firstNode : m_nextOfIdentity[cursor.node];
    if (next != kNone && next == identity.primary)
      next = m_nextOfIdentity[next];
    if (next == kNone)
      return false;
    cursor.node = next;
    cursor.edge = graph.nodes[next].firstEdge;
  }
  edge = cursor.edge;
  cursor.edge = graph.edges[edge].next;
  return true;
}

// A depth-first walk from the roots; a link to a vertex still on the walk's
// stack closes a cycle and is ignored from then on. The vertices finish in an
// order in which every vertex comes after all that it leads to.
void StepOrder::DropCycleLinks(AtomGraph const& graph) {
  m_mark.assign(IdentityCount() + graph.nodes.size(), kUnseen);
  m_dropped.assign(graph.edges.size(), 0);
  m_finished.clear();
  for (std::uint32_t root : graph.roots) {
    std::uint32_t const start = VertexOf(root);
    if (m_mark[start] != kUnseen)
      continue;
    m_mark[start] = kOnStack;
    m_stack.assign(1, Open(graph, start));
    while (!m_stack.empty()) {
      std::uint32_t edge;
      if (!Advance(graph, m_stack.back(), edge)) {
        m_mark[m_stack.back().vertex] = kFinished;
        m_finished.push_back(m_stack.back().vertex);
        m_stack.pop_back();
        continue;
      }
      std::uint32_t const vertex = VertexOf(graph.edges[edge].to);
      if (m_mark[vertex] == kOnStack) {
        m_dropped[edge] = 1;
      } else if (m_mark[vertex] == kUnseen) {
        m_mark[vertex] = kOnStack;
        m_stack.push_back(Open(graph, vertex));
      }
    }
  }
}

// A step's round: the longest chain of steps leading to it. A step-less atom
// carries the round of the last step before it (-1 for none).
void StepOrder::ComputeRounds(AtomGraph const& graph) {
  m_round.assign(IdentityCount() + graph.nodes.size(), -1);
  std::fill(m_round.begin(), m_round.begin() + IdentityCount(), 0);
  for (std::size_t i = m_finished.size(); i-- > 0;) {
    std::uint32_t const vertex = m_finished[i];
    Cursor cursor = Open(graph, vertex);
    for (std::uint32_t edge; Advance(graph, cursor, edge);) {
      if (m_dropped[edge])
        continue;
      std::uint32_t const next = VertexOf(graph.edges[edge].to);
      m_round[next] = std::max(m_round[next], m_round[vertex] + (IsStep(next) ? 1 : 0));
    }
  }
}

void StepOrder::Claim(std::uint32_t identity, std::uint32_t node) {
  m_mark[identity] = 1;
  m_identities[identity].primary = node;
  m_pending.push_back(identity);
}

// Round 0 in the order of last appearance, found as the order of first
// appearance in the reversed walk: roots last to first, children last to
// first (a stack fed in order).
void StepOrder::OrderFirstRound(AtomGraph const& graph) {
  std::fill(m_mark.begin(), m_mark.end(), 0); // now: placed, or visited
  m_pending.clear();
  m_stack.clear();
  std::vector<std::uint32_t>& todo = m_finished; // no longer needed
  todo.assign(graph.roots.begin(), graph.roots.end());
  while (!todo.empty()) {
    std::uint32_t const node = todo.back();
    todo.pop_back();
    std::uint32_t const vertex = VertexOf(node);
    if (m_mark[vertex] || m_round[vertex] != (IsStep(vertex) ? 0 : -1))
      continue;
    if (IsStep(vertex)) {
      Claim(vertex, node);
      continue;
    }
    m_mark[vertex] = 1;
    for (std::uint32_t edge = graph.nodes[node].firstEdge; edge != kNone;
         edge = graph.edges[edge].next)
      if (!m_dropped[edge])
        todo.push_back(graph.edges[edge].to);
  }
  m_run.assign(m_pending.rbegin(), m_pending.rend());
}

// The steps of `round`, placed from the steps of the round before
// (m_run[begin, end)). Owners are walked last to first, so that a step is
// claimed by the last of the steps leading to it; a step-less atom visited
// by a later owner only leads to steps that owner claimed. Step-less atoms of
// another round lead to steps of later rounds and are not entered.
void StepOrder::OrderRound(AtomGraph const& graph, int round, std::size_t begin, std::size_t end) {
  m_pending.clear();
  m_segments.clear();
  for (std::size_t i = end; i-- > begin;) {
    std::size_t const first = m_pending.size();
    m_stack.assign(1, Open(graph, m_run[i]));
    while (!m_stack.empty()) {
      std::uint32_t edge;
      if (!Advance(graph, m_stack.back(), edge)) {
        m_stack.pop_back();
        continue;
      }
      if (m_dropped[edge])
        continue;
      std::uint32_t const node = graph.edges[edge].to;
      std::uint32_t const vertex = VertexOf(node);
      if (m_mark[vertex])
        continue;
      if (IsStep(vertex) && m_round[vertex] == round) {
        Claim(vertex, node);
      } else if (!IsStep(vertex) && m_round[vertex] == round - 1) {
        m_mark[vertex] = 1;
        m_stack.push_back(Open(graph, vertex));
      }
    }
    m_segments.emplace_back(first, m_pending.size());
  }
  for (std::size_t s = m_segments.size(); s-- > 0;)
    m_run.insert(m_run.end(), m_pending.begin() + m_segments[s].first,
                 m_pending.begin() + m_segments[s].second);
}

void StepOrder::Execute(AtomGraph const& graph, GRegenContext& context) {
  for (std::uint32_t identity : m_run) {
    std::uint32_t const node = m_identities[identity].primary;
    GRegenAtom const& atom = graph.nodes[node].atom;
    m_steps[node]->Execute(m_objects[node].get(), atom);
    context.MarkRegened(atom.TargetId());
  }
}

void StepOrder::Reset() {
  m_identities.clear();
  m_identityIndex.Clear();
  m_objects.clear();
  m_run.clear();
}

} // namespace zrn::detail
