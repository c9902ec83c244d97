// The run list's index: step identity to the step node that holds it in the
// run list.
#ifndef ZRN_SRC_REGEN_RUNINDEX_H
#define ZRN_SRC_REGEN_RUNINDEX_H

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace zrn {

struct GRegenStepNode;

/// A step's identity: its object's regeneration id and its step key. Hosts
/// keep both stable during a pass, so they are read once per node.
struct StepIdentity {
  unsigned long long object;
  long long key;
  bool operator==(StepIdentity const&) const = default;
};

std::size_t HashIdentity(StepIdentity const& id);

/// An open-addressing map with linear probing. Every step of a pass is
/// looked up here, and in a table of a million steps a node-based map costs
/// several cache misses per lookup where this costs about one. Slots carry
/// the generation they were written in, so Clear is O(1) whatever the size
/// of the last pass.
class RunIndex {
public:
  /// Makes room for `count` entries without growing.
  void Reserve(std::size_t count);
  /// The slot of `id`, inserting `node` there when `id` is absent; the bool
  /// is true when it was inserted.
  std::pair<GRegenStepNode**, bool> TryEmplace(StepIdentity const& id, GRegenStepNode* node);
  /// Removes `id` if present.
  void Erase(StepIdentity const& id);
  /// Removes every entry.
  void Clear();

private:
  struct Slot {
    StepIdentity id;
    GRegenStepNode* node;
    std::uint32_t generation;
  };

  Slot* Find(StepIdentity const& id);
  void Grow(std::size_t capacity);
  bool IsLive(Slot const& slot) const { return slot.generation == m_generation; }

  std::vector<Slot> m_slots;
  std::size_t m_used = 0; // live entries and erased ones (which still lengthen probes)
  std::uint32_t m_generation = 1;
};

} // namespace zrn

#endif // ZRN_SRC_REGEN_RUNINDEX_H
