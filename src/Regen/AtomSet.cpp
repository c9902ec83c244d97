#include "Regen/AtomSet.h"

#include "Regen/AtomTree.h"

#include <algorithm>
#include <bit>
#include <functional>

namespace zrn {

std::size_t HashAtom(GRegenAtom const& atom) {
  std::size_t h =
      std::hash<std::wstring>()(atom.PropertyId()) ^ atom.TargetId() * 0x9e3779b97f4a7c15ULL;
  h ^= h >> 33;
  h *= 0xff51afd7ed558ccdULL;
  return h ^ (h >> 33);
}

std::size_t AtomIndex::Probe(HashedAtom const& key) const {
  std::size_t const mask = m_slots.size() - 1;
  for (std::size_t i = key.hash & mask;; i = (i + 1) & mask) {
    Slot const& slot = m_slots[i];
    if (!slot.node || (slot.hash == key.hash && slot.node->atom.IsEqual(*key.atom)))
      return i;
  }
}

GRegenAtomNode* AtomIndex::Find(HashedAtom const& key) const {
  return m_size == 0 ? nullptr : m_slots[Probe(key)].node;
}

void AtomIndex::Set(GRegenAtomNode* node) {
  if (2 * (m_size + 1) > m_slots.size())
    Resize(std::max<std::size_t>(16, 2 * m_slots.size()));
  Slot& slot = m_slots[Probe(node->Key())];
  m_size += slot.node ? 0 : 1;
  slot = Slot{node->hash, node};
}

void AtomIndex::Clear() {
  std::size_t const used = m_size;
  m_size = 0;
  if (used != 0 && 8 * used < m_slots.size())
    m_slots.assign(std::bit_ceil(std::max<std::size_t>(16, 4 * used)), Slot{0, nullptr});
  else if (used != 0)
    std::fill(m_slots.begin(), m_slots.end(), Slot{0, nullptr});
}

void AtomIndex::Resize(std::size_t capacity) {
  std::vector<Slot> old(capacity, Slot{0, nullptr});
  old.swap(m_slots);
  m_size = 0;
  for (Slot const& slot : old)
    if (slot.node)
      Set(slot.node);
}

} // namespace zrn
