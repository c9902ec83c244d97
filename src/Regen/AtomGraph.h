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

  AtomNode(GRegenAtom&& a, std::uint32_t p, std::size_t h)
      : atom(std::move(a)), hash(h), property(p) {}

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

/// The nodes, their child links and the root list of a pass. The graph is
/// acyclic: a link to an atom still being handled is never made.
struct AtomGraph {
  std::vector<AtomNode> nodes;
  std::vector<AtomEdge> edges;
  std::vector<std::uint32_t> roots;

  std::uint32_t AddNode(GRegenAtom&& atom, std::uint32_t property, std::size_t hash) {
    nodes.emplace_back(std::move(atom), property, hash);
    return static_cast<std::uint32_t>(nodes.size() - 1);
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
  }
};

} // namespace zrn::detail

#endif // ZRN_SRC_REGEN_ATOMGRAPH_H
