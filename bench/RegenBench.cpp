// Regeneration passes over a chain and over a tree of fan-out 8, of 100,000
// and of 1,000,000 objects, each object yielding one step; the root's atom is
// marked before each pass. Items are objects regenerated, so the per-item
// time of 1M against 100k shows how the pass scales. RemoveObject cascading
// through 100,000 dependents is measured on its own.
//
// The host is lean on purpose (objects in a vector, found by index) so that
// the figures are mostly the engine's.
#include <zrn/Regen/RegenObject.h>

#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

namespace {

using Id = unsigned long long;
constexpr auto kDependsOn = static_cast<zrn::GRegenObjectRelation::RelationType>(0);

class Host : public zrn::IRegenObjectContainer {
public:
  struct Object : zrn::IRegenableObject, zrn::IRegenStep {
    Host* host = nullptr;
    Id id = 0;
    Id parent = 0; // the object this one depends on; itself for the root
    unsigned long long runs = 0;

    unsigned long long GetRegenId() override { return id; }
    void CollectRelations(zrn::IRelationContext& context) override {
      if (parent != id)
        context.AddRelation(id, parent, kDependsOn);
    }
    bool OnAtomChanged(zrn::GRegenAtom const& atom) override {
      if (atom.TargetId() != id)
        host->MarkAtom(zrn::GRegenAtom(id, L"value"));
      return atom.TargetId() == id;
    }
    zrn::IRegenStep* CreateRegenStep(zrn::GRegenAtom const&) override { return this; }
    void OnRemoveObject(zrn::GRemoveObjectContext& context) override {
      context.MarkRemove(id);
      if (context.GetTargetId() == id)
        for (Id child : host->dependents[id]) // the whole subtree goes
          host->RemoveObject(child);
    }
    long long GetStepKey() override { return 1; }
    void Execute(zrn::IRegenableObject*, zrn::GRegenAtom const&) override { ++runs; }
  };

  // Object i depends on object (i - 1) / fanOut.
  Host(Id count, Id fanOut) : objects(count), dependents(count) {
    zrn::GCollectRelationContext collect(*GetRelationDb());
    for (Id i = 0; i < count; ++i) {
      auto object = std::make_shared<Object>();
      object->host = this;
      object->id = i;
      object->parent = i == 0 ? 0 : (i - 1) / fanOut;
      if (i != 0)
        dependents[object->parent].push_back(i);
      object->CollectRelations(collect);
      objects[i] = std::move(object);
    }
  }

  std::shared_ptr<zrn::IRegenableObject> FindObject(unsigned long long id) override {
    return id < objects.size() ? objects[id] : nullptr;
  }
  void DeleteObject(unsigned long long id) override { objects[id].reset(); }

  std::vector<std::shared_ptr<Object>> objects;
  std::vector<std::vector<Id>> dependents;
};

void BM_Regenerate(benchmark::State& state) {
  Host host(state.range(0), state.range(1));
  zrn::GRegenContext warmUp;
  host.MarkAtom(zrn::GRegenAtom(0, L"value"));
  host.Regenerate(warmUp);
  for (auto _ : state) {
    zrn::GRegenContext context;
    host.MarkAtom(zrn::GRegenAtom(0, L"value"));
    host.Regenerate(context);
    if (context.GetRegenedIds().size() != host.objects.size())
      state.SkipWithError("not every object was regenerated");
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_RemoveObjectCascade(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    Host host(state.range(0), state.range(1));
    state.ResumeTiming();
    host.RemoveObject(0);
    state.PauseTiming();
    zrn::GRegenContext context;
    host.Regenerate(context);
    if (context.GetDeletedIds().size() != host.objects.size())
      state.SkipWithError("not every object was removed");
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

// Chain: fan-out 1. Tree: fan-out 8.
BENCHMARK(BM_Regenerate)
    ->Args({100'000, 1})
    ->Args({1'000'000, 1})
    ->Args({100'000, 8})
    ->Args({1'000'000, 8})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RemoveObjectCascade)->Args({100'000, 8})->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
