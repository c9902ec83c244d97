#include "Regen/RegenTestModel.h"

#include <zrn/Profile/GLog/LogManager.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <list>
#include <random>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>

namespace zrn {
namespace {

using namespace test;

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

// The relations refreshed after a pass are those of every id in the context
// at that point, also one a host's override adds while the steps run.
TEST(GRegenEngine, IdsAHostAddsToTheContextDuringAPassRefreshTheirRelations) {
  struct Recording : Model {
    GRegenContext* context = nullptr;
    void Regenerate(GRegenContext& c) override {
      context = &c;
      Model::Regenerate(c);
    }
  } model;
  struct Step : IRegenStep {
    Recording* model;
    long long GetStepKey() override { return 0; }
    void Execute(IRegenableObject*, GRegenAtom const&) override { model->context->MarkUpdated(5); }
  } step;
  step.model = &model;
  model.Add(1).step = &step;
  model.Add(5).dependsOn = {1}; // not in the database yet
  model.Mark(1);
  GRegenContext context;
  model.Regenerate(context);
  EXPECT_EQ(context.GetUpdatedIds(), (IdSet{1, 5}));
  ASSERT_NE(model.GetRelationDb()->GetRelations(1), nullptr);
  EXPECT_TRUE(model.GetRelationDb()->GetRelations(1)->IsIdExist(5));
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
  model.objects[1]->step = &step;
  model.Mark(1);
  GRegenContext context;
  model.Regenerate(context);
  EXPECT_EQ(model.executed, (Ids{1}));
  model.Regenerate(context); // nothing was marked during execution
  EXPECT_EQ(model.executed, (Ids{1}));
}

// A tree walked depth first meets its ids out of order; the context still
// gets every updated id, whether the ids are dense or far apart, next to
// those of earlier passes, and also when a callback ends the pass by throwing.
TEST(GRegenEngine, UpdatedIdsAreAllRecordedWhateverTheirOrderAndRange) {
  for (Id spacing : {Id{1}, Id{1'000'000'007}}) {
    Model model;
    std::mt19937 random(3);
    std::vector<Id> ids{5 * spacing};
    model.Add(ids[0]);
    for (Id k = 1; k < 300; ++k) { // each object uses a random one made before
      ids.push_back((k * 37 % 301 + 5) * spacing);
      model.Add(ids.back(), {ids[random() % k]});
    }
    GRegenContext context;
    context.MarkUpdated(2 * spacing); // from an earlier pass
    model.Mark(ids[0]);
    model.Regenerate(context);
    IdSet expected(ids.begin(), ids.end());
    expected.insert(2 * spacing);
    EXPECT_EQ(context.GetUpdatedIds(), expected) << spacing;
  }

  struct Throwing : Model::Object {
    bool OnAtomChanged(GRegenAtom const& atom) override {
      if (atom.TargetId() == id)
        throw std::runtime_error("host failure");
      return Model::Object::OnAtomChanged(atom);
    }
  };
  Model model;
  for (Id id : {9, 3, 7})
    model.Add(id, id == 9 ? Ids{} : Ids{9});
  auto thrower = std::make_shared<Throwing>();
  thrower->model = &model;
  thrower->id = thrower->regenId = 1;
  thrower->dependsOn = {7};
  model.objects[1] = thrower;
  GCollectRelationContext collect(*model.GetRelationDb());
  thrower->CollectRelations(collect);
  model.Mark(9);
  GRegenContext context;
  EXPECT_THROW(model.Regenerate(context), std::runtime_error);
  EXPECT_EQ(context.GetUpdatedIds(), (IdSet{3, 7, 9}));
  model.objects.erase(1);
  model.Mark(3); // the engine is ready for the next pass
  GRegenContext next;
  model.Regenerate(next);
  EXPECT_EQ(next.GetRegenedIds(), (IdSet{3}));
}

// Atoms of one pass reuse those of the pass before: each callback must still
// see the property text of its own atom, longer or shorter than before.
TEST(GRegenEngine, EveryPassSeesItsOwnPropertyTexts) {
  struct Chain : IRegenObjectContainer {
    struct Link : IRegenableObject, IRegenStep {
      Chain* chain = nullptr;
      Id id = 0;
      unsigned long long GetRegenId() override { return id; }
      void CollectRelations(IRelationContext& context) override {
        if (id != 0)
          context.AddRelation(id, id - 1, kDependsOn);
      }
      bool OnAtomChanged(GRegenAtom const& atom) override {
        if (atom.TargetId() != id && atom.PropertyId() == chain->Property(atom.TargetId()))
          chain->MarkAtom(GRegenAtom(id, chain->Property(id)));
        return false;
      }
      IRegenStep* CreateRegenStep(GRegenAtom const&) override { return this; }
      void OnRemoveObject(GRemoveObjectContext&) override {}
      long long GetStepKey() override { return 0; }
      void Execute(IRegenableObject*, GRegenAtom const& atom) override {
        chain->seen += atom.PropertyId() == chain->Property(atom.TargetId());
      }
    };
    std::shared_ptr<IRegenableObject> FindObject(unsigned long long id) override {
      return id < links.size() ? links[id] : nullptr;
    }
    void DeleteObject(unsigned long long) override {}
    std::wstring Property(Id id) const { return std::wstring(id % 3 * length, L'p') + L"!"; }

    std::vector<std::shared_ptr<Link>> links;
    std::size_t length = 0;
    std::size_t seen = 0;
  } chain;
  GCollectRelationContext collect(*chain.GetRelationDb());
  for (Id id = 0; id < 9000; ++id) {
    chain.links.push_back(std::make_shared<Chain::Link>());
    chain.links.back()->chain = &chain;
    chain.links.back()->id = id;
    chain.links.back()->CollectRelations(collect);
  }
  // Long texts, short ones, one atom (the reused ones let go), long again.
  for (std::size_t length : {40, 1, 0, 200}) {
    chain.length = length;
    chain.seen = 0;
    Id const root = length == 0 ? 8999 : 0;
    chain.MarkAtom(GRegenAtom(root, chain.Property(root)));
    GRegenContext context;
    chain.Regenerate(context);
    EXPECT_EQ(chain.seen, 9000 - root) << length;
  }
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

TEST(GRegenEngine, PerPathPropagationCallsOncePerPath) {
  for (bool perPath : {false, true}) {
    Model model;
    model.GetRegenEngine().SetPerPathPropagation(perPath);
    model.Add(1);
    model.Add(2, {1});
    model.Add(3, {1});
    model.Add(4, {2, 3});
    model.Mark(1);
    GRegenContext context;
    model.Regenerate(context);
    using Reaction = std::pair<Id, Id>;
    auto const count = [&](Reaction r) {
      return std::count(model.reactions.begin(), model.reactions.end(), r);
    };
    EXPECT_EQ(count(Reaction{4, 4}), perPath ? 2 : 1); // D's own atom, reached through B and C
    EXPECT_EQ(count(Reaction{4, 2}), 1);
    EXPECT_EQ(model.reactions.size(), perPath ? 9u : 8u);
    EXPECT_EQ(model.executed, (Ids{1, 2, 3, 4}));
  }
}

// Captures the log lines written while it lives.
class LogCapture {
public:
  LogCapture() : m_log(CSingleton<CLogManager>::GetInstance()) {
    m_log.PushLogLevel(LOG_LEVEL_TRIVIAL);
    m_log.AppendOuputStream(&m_stream);
  }
  ~LogCapture() {
    m_log.RemoveOuputStream(&m_stream);
    m_log.PopLogLevel();
  }
  std::wstring Text() const { return m_stream.str(); }

private:
  CLogManager& m_log;
  std::wostringstream m_stream;
};

TEST(GRegenEngine, CyclesAreReportedOnceAndLogged) {
  for (bool perPath : {false, true}) {
    Model model;
    model.GetRegenEngine().SetPerPathPropagation(perPath);
    model.Add(1, {3});
    model.Add(2, {1});
    model.Add(3, {2});
    model.Add(4, {1, 3}); // a second way round, not a second cycle
    model.Mark(1);
    GRegenContext context;
    LogCapture log;
    model.Regenerate(context);
    auto const& cycles = model.GetRegenEngine().GetCycles();
    ASSERT_EQ(cycles.size(), 1u);
    EXPECT_EQ(cycles[0].repeated.TargetId(), 1u);
    EXPECT_EQ(cycles[0].markedBy.TargetId(), 3u);
    EXPECT_EQ(cycles[0].markedBy.PropertyId(), L"value");
    EXPECT_EQ(model.executed.size(), 4u);
    std::wstring const text = log.Text();
    EXPECT_NE(text.find(L"object 1 property \"value\" was marked again by object 3"),
              std::wstring::npos)
        << text;
    EXPECT_EQ(text.find(L"regeneration cycle", text.find(L"regeneration cycle") + 1),
              std::wstring::npos);

    model.Regenerate(context); // the next pass starts afresh
    EXPECT_TRUE(model.GetRegenEngine().GetCycles().empty());
  }
}

TEST(GRegenEngine, LargeCyclicModelRegeneratesEveryStepOnce) {
  // A ring where every object also feeds the next but one: cycles everywhere.
  Id const count = 20000;
  Model model;
  for (Id id = 0; id < count; ++id)
    model.Add(id, {(id + count - 1) % count, (id + count - 2) % count});
  model.Mark(0);
  GRegenContext context;
  model.Regenerate(context);
  EXPECT_EQ(model.executed.size(), count);
  EXPECT_EQ(IdSet(model.executed.begin(), model.executed.end()).size(), count);
  EXPECT_FALSE(model.GetRegenEngine().GetCycles().empty());
}

// A host whose DeleteObject removes the object it deletes, as hosts that
// keep regeneration in step with their model do.
struct CascadingModel : Model {
  void DeleteObject(unsigned long long id) override {
    RemoveObject(id);
    Model::DeleteObject(id);
  }
};

TEST(GRegenEngine, NestedRemovalsRunInTurn) {
  CascadingModel model; // 1 <- 2 <- 4, 1 <- 3; each object takes its dependents with it
  model.Add(1).removesWith = {2, 3};
  model.Add(2, {1}).removesWith = {4};
  model.Add(3, {1});
  model.Add(4, {2});
  model.RemoveObject(1);
  // The removal of 1 tells 1, 2 and 3, then deletes 1, 2 and 3; the removals
  // of 2 and 3 that those deletions ask for wait until then, and run in the
  // order asked. 4's waits for 2's.
  EXPECT_EQ(model.removalCalls, (Ids{1, 2, 3, 2, 4, 3, 4}));
  EXPECT_EQ(model.deleted, (Ids{1, 2, 3, 2, 4, 3, 4}));
  EXPECT_TRUE(model.objects.empty());
  GRegenContext context;
  model.Regenerate(context);
  EXPECT_EQ(context.GetDeletedIds(), (IdSet{1, 2, 3, 4}));
}

TEST(GRegenEngine, RemovalCascadeThroughALongChainNeedsNoDeepStack) {
#if defined(__SANITIZE_ADDRESS__)
  Id const count = 100'000;
#else
  Id const count = 1'000'000;
#endif
  struct Chain : IRegenObjectContainer {
    struct Link : IRegenableObject {
      Chain* chain;
      Id id;
      unsigned long long GetRegenId() override { return id; }
      void CollectRelations(IRelationContext& context) override {
        if (id != 0)
          context.AddRelation(id, id - 1, test::kDependsOn);
      }
      bool OnAtomChanged(GRegenAtom const&) override { return false; }
      IRegenStep* CreateRegenStep(GRegenAtom const&) override { return nullptr; }
      void OnRemoveObject(GRemoveObjectContext& context) override { context.MarkRemove(id); }
    };
    std::vector<std::shared_ptr<Link>> links;
    std::shared_ptr<IRegenableObject> FindObject(unsigned long long id) override {
      return id < links.size() ? links[id] : nullptr;
    }
    void DeleteObject(unsigned long long id) override {
      RemoveObject(id);
      links[id].reset();
    }
  } chain;
  GCollectRelationContext collect(*chain.GetRelationDb());
  for (Id id = 0; id < count; ++id) {
    auto link = std::make_shared<Chain::Link>();
    link->chain = &chain;
    link->id = id;
    link->CollectRelations(collect);
    chain.links.push_back(std::move(link));
  }
  chain.RemoveObject(0);
  EXPECT_TRUE(std::none_of(chain.links.begin(), chain.links.end(),
                           [](auto const& link) { return link != nullptr; }));
  GRegenContext context;
  chain.Regenerate(context);
  EXPECT_EQ(context.GetDeletedIds().size(), count);
}

} // namespace
} // namespace zrn
