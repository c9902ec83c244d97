// Cost of entity trees per entity, at 100 000 and 1 000 000 entities in the
// same run, so that growth beyond linear shows as a ratio well above 10:
//
//   WideTree      a project built top-down with fan-out 16 (AddChild under a
//                 project, ids handed out one subtree at a time), then the
//                 project deleted
//   DeepChain     a chain built bottom-up off the tree, numbered by one
//                 AddChild under the project, then the project deleted
//                 (nothing recurses with the depth)
//   DeleteStored  a chain of stored entities deleted with DeleteChild while a
//                 facade is installed, so every node is recorded in the
//                 device's deleted-objects list; building is not timed
//
// Each iteration does the whole job once. After the table, main prints the
// time per entity and the 1M / 100k ratio of each benchmark.
#include <zrn/IO/DBDevice.h>
#include <zrn/IO/DataIOFacade.h>
#include <zrn/Object/Project.h>
#include <zrn/Property/Variant.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace {

using zrn::IBaseEntity;
using zrn::IBaseProject;

class NullDevice : public zrn::GDBDevice {
public:
  bool Open(std::wstring const&) override { return true; }
  void Close() override {}
  bool IsOpen() const override { return true; }
  void BeginAccess() override {}
  void EndAccess() override {}
  bool BeginTransaction() override { return true; }
  bool CommitTransaction() override { return true; }
  bool RollbackTransaction() override { return true; }
  bool WriteData(std::string const&, long long, std::string const&) override { return true; }
  bool ReadData(std::string const&, long long, std::string&) override { return false; }
  bool DeleteRecords(std::string const&, std::vector<long long> const&) override { return true; }
  void QueryColumn(std::string const&, std::vector<std::string> const&, std::string const&,
                   long long, std::vector<zrn::CVariant>&) override {}
};

class NullFacade : public zrn::IDataIOFacade {
public:
  void SaveProjectData(IBaseProject*, zrn::GDBDevice*) override {}
  IBaseEntity* LoadProjectData(long long, zrn::GDBDevice*) override { return nullptr; }
  void SaveEntityData(IBaseEntity*, zrn::GDBDevice*) override {}
  void LoadChildEntities(IBaseEntity*, zrn::GDBDevice*) override {}
  void ReloadEntityData(IBaseEntity*, zrn::GDBDevice*) override {}
  void DeleteEntityData(std::vector<long long> const&, zrn::GDBDevice*) override {}
  void FinishSave(zrn::GDBDevice*) override {}
  void LoadEntityData(IBaseEntity*, zrn::GDBDevice*) override {}
  void SwapOutEntityData(IBaseEntity*, zrn::GDBDevice*) override {}
  void PrepareSave(zrn::GDBDevice*) override {}
};

IBaseEntity* FreeChain(long long length, bool stored) {
  IBaseEntity* top = nullptr;
  for (long long i = 0; i < length; ++i) {
    auto* node = new IBaseEntity();
    if (stored)
      node->SetObjectFlag(true, zrn::EGOBJECT_FLAG_STORED);
    if (top)
      node->AddChild(top);
    top = node;
  }
  return top;
}

void BM_WideTree(benchmark::State& state) {
  const long long count = state.range(0);
  std::vector<IBaseEntity*> nodes;
  nodes.reserve(static_cast<std::size_t>(count) + 1);
  for (auto _ : state) {
    auto* project = new IBaseProject();
    nodes.assign(1, project);
    for (long long i = 1; i <= count; ++i) {
      auto* node = new IBaseEntity();
      nodes[static_cast<std::size_t>((i - 1) / 16)]->AddChild(node);
      nodes.push_back(node);
    }
    benchmark::DoNotOptimize(nodes.back()->GetObjectID());
    delete project;
  }
  state.SetItemsProcessed(state.iterations() * count);
}

void BM_DeepChain(benchmark::State& state) {
  const long long count = state.range(0);
  for (auto _ : state) {
    auto* project = new IBaseProject();
    IBaseEntity* top = FreeChain(count, false);
    project->AddChild(top);
    benchmark::DoNotOptimize(top->GetObjectID());
    delete project;
  }
  state.SetItemsProcessed(state.iterations() * count);
}

void BM_DeleteStored(benchmark::State& state) {
  const long long count = state.range(0);
  NullFacade facade;
  zrn::IDataIOFacade* const previous = zrn::GetIOFacade();
  zrn::SetIOFacade(&facade);
  auto* project = new IBaseProject();
  auto* device = new NullDevice();
  project->SetProjectDBDevice(device);
  for (auto _ : state) {
    state.PauseTiming();
    IBaseEntity* top = FreeChain(count, true);
    project->AddChild(top);
    device->GetObjectsState().ClearAllList();
    state.ResumeTiming();
    project->DeleteChild(top);
  }
  std::vector<long long> deleted;
  device->GetObjectsState().GetDeleteList(deleted);
  if (static_cast<long long>(deleted.size()) != count)
    state.SkipWithError("wrong number of recorded deletions");
  delete project;
  zrn::SetIOFacade(previous);
  state.SetItemsProcessed(state.iterations() * count);
}

BENCHMARK(BM_WideTree)
    ->Arg(100000)
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond)
    ->MinWarmUpTime(0.3);
BENCHMARK(BM_DeepChain)
    ->Arg(100000)
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond)
    ->MinWarmUpTime(0.3);
BENCHMARK(BM_DeleteStored)
    ->Arg(100000)
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond)
    ->MinWarmUpTime(0.3);

// The console table, plus the wall and CPU seconds per iteration of every
// run, by name. Both are printed: on a shared machine the CPU time is the
// steadier of the two.
class RatioReporter : public benchmark::ConsoleReporter {
public:
  void ReportRuns(std::vector<Run> const& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (Run const& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.iterations <= 0)
        continue;
      const double n = static_cast<double>(run.iterations);
      m_times[run.run_name.function_name][run.run_name.args] = {run.real_accumulated_time / n,
                                                                run.cpu_accumulated_time / n};
    }
  }

  void PrintRatios() const {
    std::printf("\n%-16s %22s %22s %16s\n", "", "ns/entity at 100k", "ns/entity at 1M",
                "1M / 100k");
    std::printf("%-16s %11s %10s %11s %10s %8s %7s\n", "benchmark", "wall", "cpu", "wall", "cpu",
                "wall", "cpu");
    for (auto const& [name, bySize] : m_times) {
      auto small = bySize.find("100000");
      auto large = bySize.find("1000000");
      if (small == bySize.end() || large == bySize.end())
        continue;
      std::printf("%-16s %11.1f %10.1f %11.1f %10.1f %8.2f %7.2f\n", name.c_str(),
                  small->second.wall * 1e4, small->second.cpu * 1e4, large->second.wall * 1e3,
                  large->second.cpu * 1e3, large->second.wall / small->second.wall,
                  large->second.cpu / small->second.cpu);
    }
  }

private:
  struct Times {
    double wall; // seconds per iteration
    double cpu;
  };
  std::map<std::string, std::map<std::string, Times>> m_times;
};

} // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv))
    return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.PrintRatios();
  benchmark::Shutdown();
  return 0;
}
