#include "Regen/RegenTestModel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <list>
#include <random>
#include <set>

namespace zrn {
namespace {

using test::Id;
using test::Model;
using Ids = std::vector<Id>;
using IdSet = std::set<Id>;

TEST(GRegenEngine, DiamondRunsEachStepOnceAfterEverythingLeadingToIt) {
  Model model;
  model.Add(1);
  model.Add(2, {1});
  model.Add(3, {1});
  model.Add(4, {2, 3});
  model.Mark(1);
  model.Mark(1); // one root, one reaction
  GRegenContext context;
  model.Regenerate(context);
  EXPECT_EQ(model.executed, (Ids{1, 2, 3, 4}));
  EXPECT_EQ(std::count(model.reactions.begin(), model.reactions.end(), std::pair<Id, Id>{1, 1}), 1);
  EXPECT_EQ(context.GetRegenedIds(), (IdSet{1, 2, 3, 4}));
  EXPECT_EQ(context.GetUpdatedIds(), (IdSet{1, 2, 3, 4}));
  EXPECT_TRUE(context.GetDeletedIds().empty());

  model.executed.clear(); // the pass emptied the marks
  model.Regenerate(context);
  EXPECT_TRUE(model.executed.empty());
}

TEST(GRegenEngine, CycleStopsAtAnAtomEqualToAnAncestor) {
  Model model;
  model.Add(1, {2});
  model.Add(2, {1});
  model.Mark(1);
  GRegenContext context;
  model.Regenerate(context);
  EXPECT_EQ(model.reactions, (std::vector<std::pair<Id, Id>>{{1, 1}, {2, 1}, {2, 2}, {1, 2}}));
  EXPECT_EQ(model.executed, (Ids{1, 2}));
}

TEST(GRegenEngine, StaleAndVanishedDependentsArePrunedAndNotCalled) {
  Model model;
  model.Add(1);
  model.Add(2, {1}).dependsOn.clear(); // recorded, but no longer reported
  model.Add(3, {1});
  model.Add(4, {1});
  model.objects.erase(4); // vanished without RemoveObject
  model.Mark(1);
  GRegenContext context;
  model.Regenerate(context);
  EXPECT_EQ(model.executed, (Ids{1, 3}));
  IdSet dependents;
  model.GetRelationDb()->GetRelations(1)->GetAllRelations(dependents);
  EXPECT_EQ(dependents, (IdSet{3}));
}

TEST(GRegenEngine, RemovedObjectsAreSkippedThenReportedAsDeleted) {
  Model model;
  model.Add(1);
  model.Add(2, {1}).removesWith = {9};
  model.Add(3, {2});
  model.RemoveObject(2);
  model.RemoveObject(2);                      // already removed: the host hears of it once
  model.RemoveObject(77);                     // unknown: not recorded
  EXPECT_EQ(model.removalCalls, (Ids{2, 3})); // the object, then its dependents
  EXPECT_EQ(model.deleted, (Ids{2, 9}));
  EXPECT_EQ(model.GetRelationDb()->GetRelations(2), nullptr);
  IdSet dependentsOfA;
  model.GetRelationDb()->GetRelations(1)->GetAllRelations(dependentsOfA);
  EXPECT_TRUE(dependentsOfA.empty());

  model.Add(2); // the host brings an object back under the removed id
  model.Mark(2);
  GRegenContext context;
  model.Regenerate(context);
  EXPECT_TRUE(model.reactions.empty());
  EXPECT_EQ(context.GetDeletedIds(), (IdSet{2}));
  model.Regenerate(context); // the removed set was emptied
  EXPECT_EQ(context.GetDeletedIds(), (IdSet{2}));
}

TEST(GRegenEngine, UpdatedIdsRefreshTheirRelationsEvenWithoutMarks) {
  Model model;
  model.Add(1);
  model.Add(2).dependsOn = {1}; // a relation the database does not know yet
  GRegenContext context;
  context.MarkUpdated(2);
  model.RemoveObject(1);
  model.Regenerate(context);
  EXPECT_TRUE(model.executed.empty());
  ASSERT_NE(model.GetRelationDb()->GetRelations(1), nullptr);
  EXPECT_TRUE(model.GetRelationDb()->GetRelations(1)->IsIdExist(2));
  EXPECT_EQ(context.GetDeletedIds(), (IdSet{1}));
}

TEST(GRegenEngine, MarksDuringExecutionAreIgnoredAndNestedPassesDoNothing) {
  struct Nesting : Model {
    bool nested = false;
    void Regenerate(GRegenContext& context) override {
      if (!executed.empty() && !nested) { // called from a step
        nested = true;
        Model::Regenerate(context);
      }
      Model::Regenerate(context);
    }
  } model;
  model.Add(1);
  struct Step : IRegenStep {
    Nesting* model;
    long long GetStepKey() override { return 0; }
    void Execute(IRegenableObject*, GRegenAtom const&) override {
      model->executed.push_back(1);
      model->Mark(1);
      GRegenContext inner;
      model->Regenerate(inner);
    }
  } step;
  step.model = &model;
  struct StepObject : Model::Object {
    IRegenStep* step;
    IRegenStep* CreateRegenStep(GRegenAtom const&) override { return step; }
  };
  auto object = std::make_shared<StepObject>();
  object->model = &model;
  object->id = object->regenId = 1;
  object->step = &step;
  model.objects[1] = object;
  model.Mark(1);
  GRegenContext context;
  model.Regenerate(context);
  EXPECT_EQ(model.executed, (Ids{1}));
  model.Regenerate(context); // nothing was marked during execution
  EXPECT_EQ(model.executed, (Ids{1}));
}

TEST(GRegenEngine, LongChainNeedsNoDeepStack) {
#if defined(__SANITIZE_ADDRESS__)
  Id const count = 200'000;
#else
  Id const count = 1000000;
#endif
  Model model;
  model.Add(0);
  for (Id id = 1; id < count; ++id)
    model.Add(id, {id - 1});
  model.Mark(0);
  GRegenContext context;
  model.Regenerate(context);
  ASSERT_EQ(model.executed.size(), count);
  EXPECT_TRUE(std::is_sorted(model.executed.begin(), model.executed.end()));
}

// The run order, computed the plain way on the same model: recursive
// propagation, a step forest of nodes with child vectors, and a run list
// searched from the front. Where moving children would close a loop of
// parent links, or when placements go on and on (both possible when the
// objects depend on each other in a cycle), the plain rules never end;
// RunOrder then returns nothing.
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

TEST(GRegenEngine, RunOrderMatchesThePlainPlacementOnRandomGraphs) {
  std::mt19937 random(20261123);
  int compared = 0;
  for (int round = 0; round < 300; ++round) {
    Model model;
    int const size = 3 + round % 8;
    for (Id id = 0; id < static_cast<Id>(size); ++id) {
      std::vector<Id> dependsOn;
      for (Id other = 0; other < static_cast<Id>(size); ++other)
        if (other != id && random() % 100 < (other < id ? 40u : 8u)) // mostly acyclic
          dependsOn.push_back(other);
      auto& object = model.Add(id, dependsOn);
      object.hasStep = random() % 5 != 0;
      object.stepKey = random() % 2;
    }
    Ids const expected = ReferencePlan(model).RunOrder(0);
    model.Mark(0);
    GRegenContext context;
    model.Regenerate(context);
    if (expected.empty()) { // the plain rules loop; each step reached still runs once
      IdSet reached{0}, withStep;
      for (Ids next{0}; !next.empty();) {
        Id const id = next.back();
        next.pop_back();
        if (model.objects[id]->hasStep)
          withStep.insert(id);
        IdSet dependents;
        if (auto* entry = model.GetRelationDb()->GetRelations(id))
          entry->GetAllRelations(dependents);
        for (Id d : dependents)
          if (reached.insert(d).second)
            next.push_back(d);
      }
      ASSERT_EQ(IdSet(model.executed.begin(), model.executed.end()), withStep);
      ASSERT_EQ(withStep.size(), model.executed.size());
      continue;
    }
    ASSERT_EQ(model.executed, expected) << "round " << round;
    ++compared;
  }
  EXPECT_GT(compared, 200);
}

} // namespace
} // namespace zrn
