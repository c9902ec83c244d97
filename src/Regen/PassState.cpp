#include "Regen/PassState.h"

#include <algorithm>
#include <bit>
#include <functional>
#include <iterator>

namespace zrn::detail {

std::uint32_t PassState::Intern(std::wstring const& property) {
  if (m_lastProperty != kNone && m_properties[m_lastProperty] == property)
    return m_lastProperty;
  std::uint32_t& slot =
      m_propertyIndex.Insert(std::hash<std::wstring>()(property),
                             [&](std::uint32_t i) { return m_properties[i] == property; });
  if (slot == kNone) {
    slot = static_cast<std::uint32_t>(m_properties.size());
    m_properties.push_back(property);
  }
  return m_lastProperty = slot;
}

PassState::Key PassState::KeyOf(GRegenAtom const& atom) {
  std::uint32_t const property = Intern(atom.PropertyId());
  return Key{atom.TargetId(), property, GroupHash(atom.TargetId(), property)};
}

bool PassState::MarkRoot(GRegenAtom const& atom) {
  Key const key = KeyOf(atom);
  std::uint32_t& slot = m_atoms.Insert(key.hash, Matches(key));
  if (slot != kNone)
    return false;
  slot = m_graph.AddNode(atom, key.property, key.hash);
  m_graph.roots.push_back(slot);
  return true;
}

PassState::Attached PassState::AttachChild(std::uint32_t parent, GRegenAtom const& atom,
                                           bool perPath, std::uint32_t& met) {
  Key const key = KeyOf(atom);
  if (Matches(key)(parent)) {
    met = parent;
    return Attached::Same;
  }
  if (perPath) {
    met = m_atoms.Find(key.hash, Matches(key));
    if (met != kNone && m_graph.nodes[met].state == AtomNode::State::Active)
      return Attached::Cycle;
    met = m_graph.AddNode(atom, key.property, key.hash);
    m_graph.AddEdge(parent, met);
    return Attached::New;
  }
  std::uint32_t& slot = m_atoms.Insert(key.hash, Matches(key));
  met = slot;
  if (met != kNone && m_graph.nodes[met].state == AtomNode::State::Active)
    return Attached::Cycle;
  Attached const kind = met == kNone ? Attached::New : Attached::Shared;
  if (met == kNone)
    slot = met = m_graph.AddNode(atom, key.property, key.hash);
  else
    m_graph.forest = false;
  m_graph.AddEdge(parent, met);
  return kind;
}

// Ids noted in the walk's order would each cost a search of the context's
// tree; sorted, each goes in at its end. Ids of one model are mostly dense,
// and then a bitmap over their range sorts them in linear time.
void PassState::FlushUpdated(GRegenContext& context) {
  m_bFlushedWhole = context.GetUpdatedIds().empty();
  m_flushed.clear();
  SortUpdated();
  for (unsigned long long id : m_flushed)
    context.MarkUpdated(id);
  m_updated.clear();
}

// Leaves the noted ids in m_flushed, ascending and distinct.
void PassState::SortUpdated() {
  if (std::is_sorted(m_updated.begin(), m_updated.end())) {
    std::unique_copy(m_updated.begin(), m_updated.end(), std::back_inserter(m_flushed));
    return;
  }
  auto const [low, high] = std::minmax_element(m_updated.begin(), m_updated.end());
  unsigned long long const first = *low;
  unsigned long long const span = *high - first;
  if (span / 4 >= m_updated.size()) {
    std::sort(m_updated.begin(), m_updated.end());
    std::unique_copy(m_updated.begin(), m_updated.end(), std::back_inserter(m_flushed));
    return;
  }
  m_bitmap.assign(span / 64 + 1, 0);
  for (unsigned long long id : m_updated)
    m_bitmap[(id - first) / 64] |= std::uint64_t{1} << ((id - first) % 64);
  for (std::size_t word = 0; word < m_bitmap.size(); ++word)
    for (std::uint64_t bits = m_bitmap[word]; bits != 0; bits &= bits - 1)
      m_flushed.push_back(first + word * 64 + static_cast<unsigned>(std::countr_zero(bits)));
}

bool PassState::NoteCycle(std::uint32_t repeated, std::uint32_t markedBy) {
  AtomNode const& r = m_graph.nodes[repeated];
  AtomNode const& m = m_graph.nodes[markedBy];
  std::size_t const key = r.hash ^ MixHash(m.hash);
  auto const [first, last] = m_cycles.equal_range(key);
  for (auto it = first; it != last; ++it)
    if (Matches(Key{r.atom.TargetId(), r.property, r.hash})(it->second.first) &&
        Matches(Key{m.atom.TargetId(), m.property, m.hash})(it->second.second))
      return false;
  m_cycles.emplace(key, std::pair(repeated, markedBy));
  return true;
}

void PassState::Reset() {
  m_steps.Reset();
  m_atoms.Clear();
  m_graph.Clear();
  m_pending.clear();
  m_cycles.clear();
  m_updated.clear();
  m_properties.clear();
  m_propertyIndex.Clear();
  m_lastProperty = kNone;
}

} // namespace zrn::detail
