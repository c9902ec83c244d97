// The atoms of one regeneration pass and the links between them: which atom
// was marked while which was handled. Nodes and links sit in flat arrays and
// refer to each other by index, so a pass allocates per array, not per atom.
#ifndef ZRN_SRC_REGEN_ATOMGRAPH_H
#define ZRN_SRC_REGEN_ATOMGRAPH_H

#include <zrn/Regen/RegenAtom.h>

#include "Regen/SlotIndex.h"

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace zrn::detail {

struct AtomNode {
  enum class State : std::uint8_t {
    Waiting, // attached, not handled yet
    Active,  // being handled, or an ancestor of the atom being handled
    Done,
  };

  AtomNode(GRegenAtom const& a, std::uint32_t p, std::size_t h) : atom(a), hash(h), property(p) {}
  /// Makes this a fresh node for `a`; the atom is assigned, keeping its buffer.
  void Assign(GRegenAtom const& a, std::uint32_t p, std::size_t h) {
    atom = a;
    hash = h;
    property = p;
    firstEdge = lastEdge = kNone;
    state = State::Waiting;
  }

  GRegenAtom atom;
  std::size_t hash;
  std::uint32_t property; // the property id, interned: equal texts, equal numbers
  std::uint32_t firstEdge = kNone; // the atom's children, in the order attached
  std::uint32_t lastEdge = kNone;
  State state = State::Waiting;
};

struct AtomEdge {
  std::uint32_t to;
  std::uint32_t next; // the next edge of the same parent
};

/// Atoms that outlive clear(): an atom added later is assigned over one left
/// from before, so its property text reuses that atom's buffer, and a pass no
/// larger than an earlier one allocates nothing for its atoms. A list much
/// larger than its last use lets go of its memory.
template <class T> class ReusedList {
public:
  std::size_t size() const { return m_count; }
  bool empty() const { return m_count == 0; }
  T& operator[](std::size_t i) { return m_store[i]; }
  T const& operator[](std::size_t i) const { return m_store[i]; }

  /// Adds an element: `reuse(element)` overwrites one left from before, or
  /// `make()` returns a new one.
  template <class Reuse, class Make> std::uint32_t Add(Reuse&& reuse, Make&& make) {
    if (m_count < m_store.size())
      reuse(m_store[m_count]);
    else
      m_store.push_back(make());
    return static_cast<std::uint32_t>(m_count++);
  }
  void clear() {
    if (m_count != 0 && 8 * m_count < m_store.size() && m_store.size() > 4096) {
      m_store.clear();
      m_store.shrink_to_fit();
    }
    m_count = 0;
  }

private:
  std::vector<T> m_store;
  std::size_t m_count = 0;
};

/// The nodes, their child links and the root list of a pass. The graph is
/// acyclic: a link to an atom still being handled is never made.
struct AtomGraph {
  ReusedList<AtomNode> nodes;
  std::vector<AtomEdge> edges;
  std::vector<std::uint32_t> roots;
  bool forest = true; // no atom was linked to twice (as a root and a child, or two children)

  std::uint32_t AddNode(GRegenAtom const& atom, std::uint32_t property, std::size_t hash) {
    return nodes.Add([&](AtomNode& n) { n.Assign(atom, property, hash); },
                     [&] { return AtomNode(atom, property, hash); });
  }
  void AddEdge(std::uint32_t parent, std::uint32_t child) {
    edges.push_back(AtomEdge{child, kNone});
    auto const index = static_cast<std::uint32_t>(edges.size() - 1);
    AtomNode& p = nodes[parent];
    (p.lastEdge == kNone ? p.firstEdge : edges[p.lastEdge].next) = index;
    p.lastEdge = index;
  }
  void Clear() {
    nodes.clear();
    edges.clear();
    roots.clear();
    forest = true;
  }
};

} // namespace zrn::detail

#endif // ZRN_SRC_REGEN_ATOMGRAPH_H
