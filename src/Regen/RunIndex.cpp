#include "Regen/RunIndex.h"

#include <algorithm>
#include <bit>

namespace zrn {

namespace {

// Marks an erased entry: its slot ends no probe sequence.
GRegenStepNode* const kErased = reinterpret_cast<GRegenStepNode*>(alignof(std::max_align_t));

} // namespace

std::size_t HashIdentity(StepIdentity const& id) {
  // Multiplicative mixing (a 64-bit finaliser): consecutive ids must spread
  // over the whole table, and the low bits pick the slot.
  std::uint64_t h = id.object * 0x9e3779b97f4a7c15ULL ^ static_cast<std::uint64_t>(id.key);
  h ^= h >> 33;
  h *= 0xff51afd7ed558ccdULL;
  h ^= h >> 33;
  return static_cast<std::size_t>(h);
}

void RunIndex::Reserve(std::size_t count) {
  if (2 * count > m_slots.size())
    Grow(std::bit_ceil(2 * count));
}

void RunIndex::Clear() {
  m_used = 0;
  if (++m_generation == 0) { // after 4 billion passes, start the generations again
    for (Slot& slot : m_slots)
      slot.generation = 0;
    m_generation = 1;
  }
}

RunIndex::Slot* RunIndex::Find(StepIdentity const& id) {
  std::size_t const mask = m_slots.size() - 1;
  for (std::size_t i = HashIdentity(id) & mask;; i = (i + 1) & mask) {
    Slot& slot = m_slots[i];
    if (!IsLive(slot))
      return nullptr;
    if (slot.node != kErased && slot.id == id)
      return &slot;
  }
}

std::pair<GRegenStepNode**, bool> RunIndex::TryEmplace(StepIdentity const& id,
                                                       GRegenStepNode* node) {
  if (2 * (m_used + 1) > m_slots.size())
    Grow(std::bit_ceil(std::max<std::size_t>(16, 4 * (m_used + 1))));
  std::size_t const mask = m_slots.size() - 1;
  Slot* reusable = nullptr;
  for (std::size_t i = HashIdentity(id) & mask;; i = (i + 1) & mask) {
    Slot& slot = m_slots[i];
    if (!IsLive(slot)) {
      Slot& target = reusable ? *reusable : slot;
      if (!reusable)
        ++m_used;
      target = Slot{id, node, m_generation};
      return {&target.node, true};
    }
    if (slot.node == kErased) {
      if (!reusable)
        reusable = &slot;
    } else if (slot.id == id) {
      return {&slot.node, false};
    }
  }
}

void RunIndex::Erase(StepIdentity const& id) {
  if (m_slots.empty())
    return;
  if (Slot* slot = Find(id))
    slot->node = kErased;
}

// Rehashes the live entries into a table of `capacity` slots (a power of
// two), dropping erased ones.
void RunIndex::Grow(std::size_t capacity) {
  std::vector<Slot> old;
  old.swap(m_slots);
  m_slots.assign(std::max(capacity, old.size()), Slot{{0, 0}, nullptr, 0});
  std::uint32_t const oldGeneration = m_generation;
  m_generation = 1;
  m_used = 0;
  for (Slot const& slot : old)
    if (slot.generation == oldGeneration && slot.node != kErased)
      TryEmplace(slot.id, slot.node);
}

} // namespace zrn
