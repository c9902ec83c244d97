// Regeneration passes over model shapes a parametric host meets, each object
// yielding one step; the first object's atom is marked before each pass.
// Items are objects regenerated, so the per-item times of two sizes of one
// shape show how a pass scales (linear: equal per-item times).
//
// - chain and tree of fan-out 8, of 100,000 and 1,000,000 objects;
// - diamond ladder (B_k and C_k use D_(k-1), D_k uses B_k and C_k) of 1,000,
//   10,000 and 100,000 rungs;
// - layered lattice of width 20, 1,000, 5,000 and 50,000 layers deep, each
//   object using three objects of the layer before;
//
// The smallest ladder and lattice fit in the processor's caches, so their
// per-item times are lower; the step of ten between the larger sizes shows
// how a pass scales once the model is out of the caches.
// - a small diamond ladder with changes propagated along every path (the
//   per-path option) side by side with the default, which shares what it
//   met before;
// - RemoveObject cascading through a chain of 1,000,000 objects whose
//   DeleteObject removes the object it deletes.
//
// The host is lean on purpose (objects in a vector, found by index) so that
// the figures are mostly the engine's.
#include <zrn/Regen/RegenObject.h>

#include <benchmark/benchmark.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

using Id = unsigned long long;
constexpr auto kDependsOn = static_cast<zrn::GRegenObjectRelation::RelationType>(0);
// Hosts name their properties with constants; each atom still copies it.
std::wstring const kValue = L"value";

class Host : public zrn::IRegenObjectContainer {
public:
  struct Object : zrn::IRegenableObject, zrn::IRegenStep {
    Host* host = nullptr;
    Id id = 0;
    std::vector<Id> uses;
    unsigned long long runs = 0;

    unsigned long long GetRegenId() override { return id; }
    void CollectRelations(zrn::IRelationContext& context) override {
      for (Id used : uses)
        context.AddRelation(id, used, kDependsOn);
    }
    bool OnAtomChanged(zrn::GRegenAtom const& atom) override {
      if (atom.TargetId() != id)
        host->MarkAtom(zrn::GRegenAtom(id, kValue));
      return atom.TargetId() == id;
    }
    zrn::IRegenStep* CreateRegenStep(zrn::GRegenAtom const&) override { return this; }
    void OnRemoveObject(zrn::GRemoveObjectContext& context) override { context.MarkRemove(id); }
    long long GetStepKey() override { return 1; }
    void Execute(zrn::IRegenableObject*, zrn::GRegenAtom const&) override { ++runs; }
  };

  // uses[i]: the objects object i depends on.
  explicit Host(std::vector<std::vector<Id>> const& uses) : objects(uses.size()) {
    zrn::GCollectRelationContext collect(*GetRelationDb());
    for (Id i = 0; i < uses.size(); ++i) {
      auto object = std::make_shared<Object>();
      object->host = this;
      object->id = i;
      object->uses = uses[i];
      object->CollectRelations(collect);
      objects[i] = std::move(object);
    }
  }

  std::shared_ptr<zrn::IRegenableObject> FindObject(unsigned long long id) override {
    return id < objects.size() ? objects[id] : nullptr;
  }
  void DeleteObject(unsigned long long id) override {
    RemoveObject(id); // the cascade a host keeping regeneration in step makes
    objects[id].reset();
  }

  std::vector<std::shared_ptr<Object>> objects;
};

using Shape = std::vector<std::vector<Id>>;

Shape Tree(Id count, Id fanOut) { // fan-out 1: a chain
  Shape uses(count);
  for (Id i = 1; i < count; ++i)
    uses[i] = {(i - 1) / fanOut};
  return uses;
}

Shape DiamondLadder(Id rungs) {
  Shape uses(1);
  for (Id r = 0; r < rungs; ++r) {
    Id const below = uses.size() - 1;
    uses.push_back({below});
    uses.push_back({below});
    uses.push_back({below + 1, below + 2});
  }
  return uses;
}

Shape Lattice(Id width, Id depth) {
  std::mt19937 random(5);
  Shape uses(width);
  for (Id layer = 1; layer < depth; ++layer)
    for (Id i = 0; i < width; ++i) {
      std::vector<Id> inputs;
      for (int k = 0; k < 3; ++k)
        inputs.push_back((layer - 1) * width + random() % width);
      uses.push_back(inputs);
    }
  for (Id i = 1; i < width; ++i) // one change reaches the whole first layer
    uses[i] = {0};
  return uses;
}

void Regenerate(benchmark::State& state, Shape const& shape, bool perPath = false) {
  Host host(shape);
  host.GetRegenEngine().SetPerPathPropagation(perPath);
  zrn::GRegenContext warmUp;
  host.MarkAtom(zrn::GRegenAtom(0, kValue));
  host.Regenerate(warmUp);
  for (auto _ : state) {
    zrn::GRegenContext context;
    host.MarkAtom(zrn::GRegenAtom(0, kValue));
    host.Regenerate(context);
    if (context.GetRegenedIds().size() != host.objects.size())
      state.SkipWithError("not every object was regenerated");
  }
  state.SetItemsProcessed(state.iterations() * static_cast<long long>(shape.size()));
}

void BM_Chain(benchmark::State& state) { Regenerate(state, Tree(state.range(0), 1)); }
void BM_Tree8(benchmark::State& state) { Regenerate(state, Tree(state.range(0), 8)); }
void BM_DiamondLadder(benchmark::State& state) {
  Regenerate(state, DiamondLadder(state.range(0)), state.range(1) != 0);
}
void BM_Lattice20(benchmark::State& state) { Regenerate(state, Lattice(20, state.range(0))); }

void BM_RemoveObjectCascade(benchmark::State& state) {
  Shape const chain = Tree(state.range(0), 1);
  for (auto _ : state) {
    state.PauseTiming();
    auto host = std::make_unique<Host>(chain);
    state.ResumeTiming();
    host->RemoveObject(0);
    state.PauseTiming();
    zrn::GRegenContext context;
    host->Regenerate(context);
    if (context.GetDeletedIds().size() != host->objects.size())
      state.SkipWithError("not every object was removed");
    host.reset();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(BM_Chain)->Arg(100'000)->Arg(1'000'000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Tree8)->Arg(100'000)->Arg(1'000'000)->Unit(benchmark::kMillisecond);
// Per path (second argument 1) against shared, on a ladder small enough for it.
BENCHMARK(BM_DiamondLadder)
    ->Args({12, 1})
    ->Args({12, 0})
    ->Args({1'000, 0})
    ->Args({10'000, 0})
    ->Args({100'000, 0})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Lattice20)->Arg(1'000)->Arg(5'000)->Arg(50'000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RemoveObjectCascade)->Arg(1'000'000)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
