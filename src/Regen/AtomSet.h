// An index of atoms held in atom nodes, by value: the atoms of the path
// being propagated and the atoms of the root list.
#ifndef ZRN_SRC_REGEN_ATOMSET_H
#define ZRN_SRC_REGEN_ATOMSET_H

#include <zrn/Regen/RegenAtom.h>

#include <cstddef>
#include <vector>

namespace zrn {

struct GRegenAtomNode;

/// The hash of an atom, computed once per atom: atoms of deep paths are
/// looked up many times.
std::size_t HashAtom(GRegenAtom const& atom);

/// An atom with its hash.
struct HashedAtom {
  std::size_t hash;
  GRegenAtom const* atom;
};

/// Maps atoms (by value) to the atom node that holds an equal atom. Open
/// addressing with linear probing: the path of a chain a million atoms deep
/// sits in one array and is looked up at every node, which a node-based set
/// would pay for with several cache misses each time. Entries are never
/// erased one by one; the propagation marks whether a node is on the path,
/// so leaving a node costs no lookup.
class AtomIndex {
public:
  /// The node recorded for an atom equal to `key`'s, or null.
  GRegenAtomNode* Find(HashedAtom const& key) const;
  /// Records `node` for its atom, replacing the node recorded for an equal
  /// atom.
  void Set(GRegenAtomNode* node);
  /// Forgets every entry; a table much larger than the last use shrinks.
  void Clear();

private:
  struct Slot {
    std::size_t hash;
    GRegenAtomNode* node; // null: empty
  };

  std::size_t Probe(HashedAtom const& key) const; // its slot, or the empty slot ending its run
  void Resize(std::size_t capacity);

  std::vector<Slot> m_slots;
  std::size_t m_size = 0;
};

} // namespace zrn

#endif // ZRN_SRC_REGEN_ATOMSET_H
