#include "Regen/PassState.h"

#include <functional>

namespace zrn::detail {

std::size_t HashAtom(GRegenAtom const& atom) {
  return MixHash(std::hash<std::wstring>()(atom.PropertyId()) ^
                 atom.TargetId() * 0x9e3779b97f4a7c15ULL);
}

bool PassState::MarkRoot(GRegenAtom const& atom) {
  std::size_t const hash = HashAtom(atom);
  std::uint32_t& slot = m_atoms.Insert(hash, Matches(atom));
  if (slot != kNone)
    return false;
  slot = m_graph.AddNode(GRegenAtom(atom), hash);
  m_graph.roots.push_back(slot);
  return true;
}

PassState::Attached PassState::AttachChild(std::uint32_t parent, GRegenAtom&& atom, bool perPath,
                                           std::uint32_t& met) {
  std::size_t const hash = HashAtom(atom);
  AtomNode const& p = m_graph.nodes[parent];
  if (hash == p.hash && atom.IsEqual(p.atom)) {
    met = parent;
    return Attached::Same;
  }
  if (perPath) {
    met = m_atoms.Find(hash, Matches(atom));
    if (met != kNone && m_graph.nodes[met].state == AtomNode::State::Active)
      return Attached::Cycle;
    met = m_graph.AddNode(std::move(atom), hash);
    m_graph.AddEdge(parent, met);
    return Attached::New;
  }
  std::uint32_t& slot = m_atoms.Insert(hash, Matches(atom));
  met = slot;
  if (met != kNone && m_graph.nodes[met].state == AtomNode::State::Active)
    return Attached::Cycle;
  Attached const kind = met == kNone ? Attached::New : Attached::Shared;
  if (met == kNone)
    slot = met = m_graph.AddNode(std::move(atom), hash);
  m_graph.AddEdge(parent, met);
  return kind;
}

bool PassState::NoteCycle(std::uint32_t repeated, std::uint32_t markedBy) {
  AtomNode const& r = m_graph.nodes[repeated];
  AtomNode const& m = m_graph.nodes[markedBy];
  std::size_t const key = r.hash ^ MixHash(m.hash);
  auto const [first, last] = m_cycles.equal_range(key);
  for (auto it = first; it != last; ++it)
    if (Atom(it->second.first).IsEqual(r.atom) && Atom(it->second.second).IsEqual(m.atom))
      return false;
  m_cycles.emplace(key, std::pair(repeated, markedBy));
  return true;
}

void PassState::Reset() {
  m_steps.Reset();
  m_atoms.Clear();
  m_graph.Clear();
  m_cycles.clear();
}

} // namespace zrn::detail
