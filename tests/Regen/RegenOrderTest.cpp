// The run order of regeneration passes, checked against a plain placement
// over the tree of every path on small models, and for validity (each step
// once, after every step leading to it) on models too large for it.
#include "Regen/RegenTestModel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <list>
#include <map>
#include <random>
#include <set>

namespace zrn {
namespace {

using namespace test;
using Graph = std::vector<Ids>; // per object, the objects it depends on

// The run order computed the plain way: recursive propagation along every
// path, a step forest of nodes with child vectors, and a run list searched
// from the front, each step met again moving to the end with the nodes of its
// subtree. Where moving children would close a loop of parent links, or when
// placements go on and on (both possible when objects depend on each other
// in a cycle), these rules never end; RunOrder then returns nothing.
class ReferencePlan {
public:
  explicit ReferencePlan(Model& model) : m_model(model) {}

  Ids RunOrder(Id root) {
    std::vector<Id> path;
    Propagate(root, path, nullptr);
    std::vector<Node*> expansion;
    for (Node* r : m_roots) {
      Place(r);
      if (!r->children.empty())
        expansion.push_back(r);
    }
    while (!expansion.empty() && !m_loops) {
      std::vector<Node*> taken;
      taken.swap(expansion);
      for (Node* x : taken)
        for (std::size_t i = 0; i < x->children.size(); ++i) {
          Node* c = x->children[i];
          Place(c);
          if (!c->children.empty())
            expansion.push_back(c);
        }
    }
    Ids order;
    for (Node* n : m_loops ? std::list<Node*>() : m_run)
      order.push_back(n->object);
    return order;
  }

private:
  struct Node {
    Id object;
    std::pair<Id, long long> identity;
    Node* parent = nullptr;
    std::vector<Node*> children;
  };

  static bool Same(Node const* a, Node const* b) { return a->identity == b->identity; }
  static bool HasAncestor(Node const* n, Node const* a) {
    for (Node const* p = n->parent; p; p = p->parent)
      if (p == a)
        return true;
    return false;
  }

  void Propagate(Id target, std::vector<Id>& path, Node* enclosing) {
    path.push_back(target);
    auto const& object = *m_model.objects.at(target);
    Node* step = nullptr;
    if (object.hasStep) {
      step = &m_nodes.emplace_back(Node{target, {object.regenId, object.stepKey}, nullptr, {}});
      if (!enclosing)
        m_roots.push_back(step);
      else if (std::none_of(enclosing->children.begin(), enclosing->children.end(),
                            [&](Node* c) { return Same(c, step); })) {
        enclosing->children.push_back(step);
        step->parent = enclosing;
      }
    }
    IdSet dependents;
    if (auto* entry = m_model.GetRelationDb()->GetRelations(target))
      entry->GetAllRelations(dependents);
    for (Id d : dependents)
      if (std::find(path.begin(), path.end(), d) == path.end())
        Propagate(d, path, step ? step : enclosing);
    path.pop_back();
  }

  void Place(Node* s) {
    m_loops = m_loops || ++m_placements > 64 * m_nodes.size() + 1024;
    if (m_loops)
      return;
    auto e = std::find_if(m_run.begin(), m_run.end(), [&](Node* n) { return Same(n, s); });
    if (e == m_run.end()) {
      m_run.push_back(s);
      return;
    }
    Node* earlier = *e;
    for (auto it = m_run.erase(e); it != m_run.end();)
      it = HasAncestor(*it, earlier) ? m_run.erase(it) : std::next(it);
    m_run.push_back(s);
    for (Node* c : std::vector<Node*>(earlier->children))
      if (std::none_of(s->children.begin(), s->children.end(),
                       [&](Node* x) { return Same(x, c); })) {
        if ((m_loops = c == s || HasAncestor(s, c)))
          return;
        s->children.push_back(c);
        c->parent = s;
      }
  }

  Model& m_model;
  std::list<Node> m_nodes;
  std::vector<Node*> m_roots;
  std::list<Node*> m_run;
  bool m_loops = false;
  std::size_t m_placements = 0;
};

// Model shapes. Object 0 is the one changed; ids grow away from it, except
// for the links a cyclic shape adds back.
Graph Diamonds(int rungs) { // D0 <- B1, C1 <- D1 <- B2, C2 <- D2 ...
  Graph g(1);
  for (int r = 0; r < rungs; ++r) {
    Id const below = g.size() - 1;
    g.push_back({below});
    g.push_back({below});
    g.push_back({below + 1, below + 2});
  }
  return g;
}

// Nested diamonds: a random series-parallel graph between 0 and the last id.
void SeriesParallel(Graph& g, Id from, Id to, int depth, std::mt19937& random) {
  int const choice = depth == 0 ? 0 : static_cast<int>(random() % 3);
  if (choice == 0) {
    g[to].push_back(from);
    return;
  }
  Id const a = g.size();
  g.emplace_back();
  SeriesParallel(g, from, a, depth - 1, random);
  if (choice == 1) {
    SeriesParallel(g, a, to, depth - 1, random);
  } else {
    Id const b = g.size();
    g.emplace_back();
    SeriesParallel(g, from, b, depth - 1, random);
    SeriesParallel(g, a, to, depth - 1, random);
    SeriesParallel(g, b, to, depth - 1, random);
  }
}

Graph NestedDiamonds(std::mt19937& random) {
  Graph g(2);
  SeriesParallel(g, 0, 1, 3, random);
  for (Ids& uses : g) { // series-parallel ids are not in order; duplicates go
    std::sort(uses.begin(), uses.end());
    uses.erase(std::unique(uses.begin(), uses.end()), uses.end());
  }
  return g;
}

Graph Lattice(int width, int depth, int inputs, std::mt19937& random) {
  Graph g(1);
  for (int layer = 0; layer < depth; ++layer) {
    Id const first = layer == 0 ? 0 : 1 + (layer - 1) * width;
    Id const count = layer == 0 ? 1 : width;
    for (int i = 0; i < width; ++i) {
      IdSet uses;
      for (int k = 0; k < inputs; ++k)
        uses.insert(first + random() % count);
      g.emplace_back(uses.begin(), uses.end());
    }
  }
  return g;
}

Graph RandomGraph(int size, unsigned forward, unsigned backward, std::mt19937& random) {
  Graph g(size);
  for (Id id = 0; id < g.size(); ++id)
    for (Id other = 0; other < g.size(); ++other)
      if (other != id && random() % 100 < (other < id ? forward : backward))
        g[id].push_back(other);
  return g;
}

// A model of the graph; about one object in five has no step, and step keys
// are shared between objects.
void Build(Model& model, Graph const& g, std::mt19937& random, bool allSteps = false) {
  for (Id id = 0; id < g.size(); ++id) {
    auto& object = model.Add(id, g[id]);
    object.hasStep = allSteps || random() % 5 != 0;
    object.stepKey = random() % 2;
  }
}

// Each object reached from 0 that has a step runs once, after every step
// that leads to it (through objects without steps too). `acyclic` asks for
// the second part.
::testing::AssertionResult IsValidOrder(Model& model, Graph const& g, Ids const& run,
                                        bool acyclic) {
  std::map<Id, std::size_t> position;
  for (std::size_t i = 0; i < run.size(); ++i)
    if (!position.emplace(run[i], i).second)
      return ::testing::AssertionFailure() << run[i] << " ran twice";
  Graph dependents(g.size());
  for (Id id = 0; id < g.size(); ++id)
    for (Id used : g[id])
      dependents[used].push_back(id);
  // Depth first from 0, carrying the last step met; ids are visited once
  // per (id, last step), which is enough for small models and for models
  // where every object has a step.
  std::set<std::pair<Id, Id>> seen;
  std::vector<std::pair<Id, Id>> todo{{0, ~Id(0)}};
  IdSet reached;
  while (!todo.empty()) {
    auto const [id, lastStep] = todo.back();
    todo.pop_back();
    if (!seen.insert({id, lastStep}).second)
      continue;
    reached.insert(id);
    bool const hasStep = model.objects.at(id)->hasStep;
    if (hasStep && acyclic && lastStep != ~Id(0) && position.at(lastStep) > position.at(id))
      return ::testing::AssertionFailure() << lastStep << " ran after " << id;
    for (Id d : dependents[id])
      todo.push_back({d, hasStep ? id : lastStep});
  }
  for (Id id : reached)
    if (model.objects.at(id)->hasStep != position.contains(id))
      return ::testing::AssertionFailure() << id << " ran or did not run wrongly";
  if (static_cast<std::ptrdiff_t>(position.size()) !=
      std::count_if(reached.begin(), reached.end(),
                    [&](Id id) { return model.objects.at(id)->hasStep; }))
    return ::testing::AssertionFailure() << "an object not reached ran";
  return ::testing::AssertionSuccess();
}

struct Outcome {
  Ids run;
  GRegenContext context;
};

Outcome RunPass(Graph const& g, unsigned seed, bool perPath) {
  std::mt19937 random(seed);
  Model model;
  Build(model, g, random);
  model.GetRegenEngine().SetPerPathPropagation(perPath);
  model.RemoveObject(g.size()); // not there: nothing is recorded
  Outcome outcome;
  model.Mark(0);
  model.Regenerate(outcome.context);
  outcome.run = model.executed;
  return outcome;
}

// Compares a pass with the plain placement over many small models of each
// shape. Acyclic models must match exactly; cyclic ones, where the plain
// rules may loop or differ, must still run every step reached once.
TEST(RegenOrder, MatchesThePlainPlacementOnSmallModels) {
  std::mt19937 shapes(20261123);
  struct Tally {
    int models = 0, differ = 0, loop = 0;
  };
  std::map<std::string, Tally> tally;
  for (int round = 0; round < 1200; ++round) {
    std::string shape;
    Graph g;
    switch (round % 6) {
    case 0:
      shape = "diamond ladder", g = Diamonds(1 + round / 6 % 7);
      break;
    case 1:
      shape = "nested diamonds", g = NestedDiamonds(shapes);
      break;
    case 2:
      shape = "lattice", g = Lattice(2 + shapes() % 3, 2 + shapes() % 4, 3, shapes);
      break;
    case 3:
      shape = "random acyclic", g = RandomGraph(3 + shapes() % 9, 40, 0, shapes);
      break;
    case 4:
      shape = "tree", g = RandomGraph(3 + shapes() % 12, 0, 0, shapes);
      for (Id id = 1; id < g.size(); ++id)
        g[id] = {shapes() % id};
      break;
    default:
      shape = "cyclic", g = RandomGraph(3 + shapes() % 8, 40, 8, shapes);
      break;
    }
    unsigned const seed = shapes();
    bool const acyclic = shape != "cyclic";
    std::mt19937 random(seed);
    Model reference;
    Build(reference, g, random);
    Ids const expected = ReferencePlan(reference).RunOrder(0);

    Outcome const shared = RunPass(g, seed, false);
    Outcome const perPath = RunPass(g, seed, true);
    // The ids a pass reports do not depend on how changes propagate.
    ASSERT_EQ(shared.context.GetUpdatedIds(), perPath.context.GetUpdatedIds()) << round;
    ASSERT_EQ(shared.context.GetRegenedIds(), perPath.context.GetRegenedIds()) << round;
    ASSERT_EQ(shared.context.GetDeletedIds(), perPath.context.GetDeletedIds()) << round;
    if (acyclic) {
      ASSERT_EQ(shared.run, perPath.run) << round;
    }
    ASSERT_TRUE(IsValidOrder(reference, g, shared.run, acyclic)) << shape << " " << round;

    Tally& t = tally[shape];
    ++t.models;
    t.loop += expected.empty() && !shared.run.empty();
    if (acyclic)
      ASSERT_EQ(shared.run, expected) << shape << " " << round;
    else if (!expected.empty() && shared.run != expected)
      ++t.differ;
  }
  for (auto const& [shape, t] : tally)
    std::printf("  %-16s %4d models, %3d differ from the plain placement, %3d where it loops\n",
                shape.c_str(), t.models, t.differ, t.loop);
}

// Regenerates a model of `g` in which every object has a step, checks that
// each runs once in a valid order, and returns the number of reactions.
std::size_t RegenerateEveryStep(Graph const& g) {
  std::mt19937 random(7);
  Model model;
  Build(model, g, random, true);
  model.Mark(0);
  GRegenContext context;
  model.Regenerate(context);
  EXPECT_EQ(model.executed.size(), g.size());
  EXPECT_TRUE(IsValidOrder(model, g, model.executed, true));
  return model.reactions.size();
}

TEST(RegenOrder, ModelsTooLargeForEveryPathRunEachStepOnceInAValidOrder) {
  // 2^2000 paths. Every object reacts once to its own change and once per
  // object it uses.
  EXPECT_EQ(RegenerateEveryStep(Diamonds(2000)), 6001u + 2 * 2000 + 2 * 2000);
  std::mt19937 random(11);
  RegenerateEveryStep(Lattice(20, 300, 3, random));
}

} // namespace
} // namespace zrn
