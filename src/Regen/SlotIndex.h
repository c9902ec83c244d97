// An open-addressing hash index from keys to 32-bit values, for the maps a
// regeneration pass looks up once per atom: atoms to their nodes, step
// identities to their entries.
#ifndef ZRN_SRC_REGEN_SLOTINDEX_H
#define ZRN_SRC_REGEN_SLOTINDEX_H

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace zrn::detail {

inline constexpr std::uint32_t kNone = UINT32_MAX;

/// Finishes a 64-bit hash so that its low bits pick a slot well.
inline std::size_t MixHash(std::uint64_t h) {
  h ^= h >> 33;
  h *= 0xff51afd7ed558ccdULL;
  return static_cast<std::size_t>(h ^ (h >> 33));
}

/// A hash of an object id and a small salt that keeps ids differing only in
/// their three low bits in one group of eight slots: a pass meets objects of
/// consecutive ids one after another, and then reads one cache line for up
/// to eight of them instead of one line each.
inline std::size_t GroupHash(std::uint64_t id, std::uint64_t salt) {
  std::size_t const group = MixHash((id >> 3) * 0x9e3779b97f4a7c15ULL ^ salt);
  return (group & ~std::size_t{7}) | static_cast<std::size_t>(id & 7);
}

/// Maps keys, given by their hash and a test against a stored value, to
/// values. Linear probing in one flat array: a pass of a million atoms looks
/// one up per atom, which a node-based map would pay for with several cache
/// misses each. The keys live with the caller (the slot keeps the value that
/// leads to them), so the index never copies one. Entries are never erased
/// one by one; Clear forgets them all.
class SlotIndex {
public:
  /// The value stored for the key, or kNone. `matches(value)` tells whether
  /// the key of a stored value is the key looked for.
  template <class Matches> std::uint32_t Find(std::size_t hash, Matches const& matches) const {
    if (m_size == 0)
      return kNone;
    return m_slots[Probe(hash, matches)].value;
  }

  /// The value slot for the key: kNone when the key was absent, in which
  /// case the caller stores the new value there before the next call.
  template <class Matches> std::uint32_t& Insert(std::size_t hash, Matches const& matches) {
    if (2 * (m_size + 1) > m_slots.size())
      Rehash(std::max<std::size_t>(16, 2 * m_slots.size()));
    Slot& slot = m_slots[Probe(hash, matches)];
    if (slot.value == kNone) {
      ++m_size;
      slot.hash = static_cast<std::uint32_t>(hash);
    }
    return slot.value;
  }

  /// Forgets every entry; a table much larger than its last use shrinks.
  void Clear() {
    std::size_t const used = m_size;
    m_size = 0;
    if (used != 0 && 8 * used < m_slots.size())
      m_slots.assign(std::bit_ceil(std::max<std::size_t>(16, 4 * used)), Slot{});
    else if (used != 0)
      std::fill(m_slots.begin(), m_slots.end(), Slot{});
  }

private:
  // The low half of the hash picks the slot and screens out most unequal
  // keys; eight bytes a slot keep a table of a million atoms small.
  struct Slot {
    std::uint32_t hash = 0;
    std::uint32_t value = kNone;
  };

  template <class Matches> std::size_t Probe(std::size_t hash, Matches const& matches) const {
    std::size_t const mask = m_slots.size() - 1;
    auto const low = static_cast<std::uint32_t>(hash);
    for (std::size_t i = low & mask;; i = (i + 1) & mask) {
      Slot const& slot = m_slots[i];
      if (slot.value == kNone || (slot.hash == low && matches(slot.value)))
        return i;
    }
  }

  void Rehash(std::size_t capacity) {
    std::vector<Slot> old(capacity);
    old.swap(m_slots);
    std::size_t const mask = capacity - 1;
    for (Slot const& slot : old) {
      if (slot.value == kNone)
        continue;
      std::size_t i = slot.hash & mask;
      while (m_slots[i].value != kNone)
        i = (i + 1) & mask;
      m_slots[i] = slot;
    }
  }

  std::vector<Slot> m_slots;
  std::size_t m_size = 0;
};

} // namespace zrn::detail

#endif // ZRN_SRC_REGEN_SLOTINDEX_H
