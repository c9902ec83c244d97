// The cost of reading values from Python through the module `zrn`, against
// the same loop in C++: one property of 100,000 property entities, and one
// value of each object of a frame of about 100,000 objects. The interpreter
// is embedded and imports the module from the build tree; the entities are
// loaded before the loops run.
#include "FrameBuilder.h"
#include "FrameModel.h"
#include "Store.h"

#include <zrn/IO/DataIOFacade.h>
#include <zrn/Store/PropertyEntity.h>
#include <zrn/Store/StoreFacade.h>

#include <benchmark/benchmark.h>
#include <pybind11/embed.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace py = pybind11;

namespace {

constexpr int kEntities = 100'000;

std::filesystem::path Scratch(char const* name) {
  static unsigned const run = std::random_device()();
  return std::filesystem::temp_directory_path() /
         ("zrn-python-bench-" + std::to_string(run) + name);
}

// The C++ side: a project of property entities, and a frame saved to a store
// that Python opens.
struct SCppModels {
  zrn::GStoreFacade facade;
  zrn::IBaseProject properties;
  std::vector<zrn::CPropertyEntity*> entities;
  std::unique_ptr<zrn::IBaseProject> frame = std::make_unique<zrn::IBaseProject>();
  std::vector<CFrameObject*> frameObjects;

  SCppModels() {
    for (int i = 0; i < kEntities; ++i) {
      auto* entity = new zrn::CPropertyEntity;
      properties.AddChild(entity);
      entity->Properties().SetProperty(L"x", zrn::CVariant(i * 0.5));
      entities.push_back(entity);
    }
    RegisterFrameTypes(facade.Types());
    zrn::SetIOFacade(&facade);
    BuildFrame(*frame, BaysFor(kEntities));
    CFrameModel model;
    std::string error;
    model.Attach(*frame, error);
    model.Parameters().MarkAll();
    zrn::GRegenContext context;
    model.Regenerate(context);
    for (CFrameObject* object : model.Objects())
      if (object != &model.Parameters())
        frameObjects.push_back(object);
    SaveToStore(*frame, Scratch("-frame.db"), facade, error);
    zrn::SetIOFacade(nullptr); // the module installs its own
  }
};

SCppModels* g_cpp = nullptr;
py::object* g_python = nullptr; // the Python side: a namespace of lists and functions

constexpr char kPythonSide[] = R"(
import zrn

def read(entities, name):
    for e in entities:
        e.props[name]

def load(properties_path, frame_path, count):
    properties = zrn.create(properties_path)
    entities = [properties.root.add_child() for _ in range(count)]
    for i, e in enumerate(entities):
        e.props["x"] = i * 0.5
    frame = zrn.open(frame_path, eager=True)
    objects = [e for e in frame.walk() if e.type_name not in ("project", "parameters")]
    return properties, entities, frame, objects
)";

void BM_PropertyFromCpp(benchmark::State& state) {
  for (auto _ : state)
    for (zrn::CPropertyEntity* entity : g_cpp->entities)
      benchmark::DoNotOptimize(entity->Properties().GetProperty(L"x").toDouble());
  state.SetItemsProcessed(state.iterations() * kEntities);
}

void BM_PropertyFromPython(benchmark::State& state) {
  py::object read = (*g_python)["read"];
  py::object entities = (*g_python)["entities"];
  py::str name("x");
  for (auto _ : state)
    read(entities, name);
  state.SetItemsProcessed(state.iterations() * kEntities);
}

void BM_FrameValueFromCpp(benchmark::State& state) {
  for (auto _ : state)
    for (CFrameObject* object : g_cpp->frameObjects) {
      ValueNames const names = object->Names();
      for (std::size_t slot = 0; slot < names.size(); ++slot)
        if (std::strcmp(names[slot], "mass") == 0)
          benchmark::DoNotOptimize(object->Value(slot));
    }
  state.SetItemsProcessed(state.iterations() * static_cast<long long>(g_cpp->frameObjects.size()));
}

void BM_FrameValueFromPython(benchmark::State& state) {
  py::object read = (*g_python)["read"];
  py::object objects = (*g_python)["objects"];
  py::str name("mass");
  for (auto _ : state)
    read(objects, name);
  state.SetItemsProcessed(state.iterations() * static_cast<long long>(py::len(objects)));
}

BENCHMARK(BM_PropertyFromCpp)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PropertyFromPython)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FrameValueFromCpp)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FrameValueFromPython)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  SCppModels cpp;
  g_cpp = &cpp;
  {
    py::scoped_interpreter interpreter;
    py::module_::import("sys").attr("path").attr("insert")(0, ZRN_PYTHON_DIR);
    py::dict side;
    py::exec(kPythonSide, side);
    py::tuple loaded =
        side["load"](Scratch("-properties.db").string(), Scratch("-frame.db").string(), kEntities);
    side["entities"] = loaded[1];
    side["objects"] = loaded[3];
    py::object handle = side;
    g_python = &handle;
    benchmark::RunSpecifiedBenchmarks();
    g_python = nullptr;
    loaded[0].attr("close")();
    loaded[2].attr("close")();
  }
  for (char const* name : {"-properties.db", "-frame.db"})
    for (char const* suffix : {"", "-wal", "-shm"})
      std::filesystem::remove(Scratch(name).string() + suffix);
  benchmark::Shutdown();
  return 0;
}
