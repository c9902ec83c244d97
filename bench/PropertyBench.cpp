// Costs of property collections: setting and getting by name and by id on a
// collection of 50 properties, and archiving 100,000 collections of one class
// with 20 mixed properties each into one memory archive and reading them back.
#include <zrn/IO/DbArchiveImpl.h>
#include <zrn/IO/MemStream.h>
#include <zrn/Object/IBase.h>
#include <zrn/Property/PropertyCollection.h>

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

namespace {

using zrn::CPropertyCollection;
using zrn::CVariant;

class Thing : public zrn::IBase {
public:
  zrn::eGBMDataType GetObjectType() override { return static_cast<zrn::eGBMDataType>(9100); }
};

constexpr int kSmallCount = 50;
constexpr int kArchivedCount = 100000;
constexpr int kArchivedProperties = 20;

std::vector<std::wstring> Names(int count) {
  std::vector<std::wstring> names;
  for (int i = 0; i < count; ++i)
    names.push_back(L"property_" + std::to_wstring(i));
  return names;
}

// Numeric values, so that the lookups rather than heap copies are measured.
struct Small {
  Thing object;
  CPropertyCollection collection{&object};
  std::vector<std::wstring> names = Names(kSmallCount);
  std::vector<unsigned short> ids;

  Small() {
    for (int i = 0; i < kSmallCount; ++i) {
      collection.SetProperty(names[i], CVariant(i));
      ids.push_back(collection.GetPropertyID(names[i]).Value());
    }
  }
};

// Runs `op(small, i)` once per iteration, cycling i over the properties.
template <class Op> void CycleOverSmall(benchmark::State& state, Op op) {
  Small small;
  int i = 0;
  for (auto _ : state) {
    op(small, i);
    i = (i + 1) % kSmallCount;
  }
}

void BM_SetPropertyByName(benchmark::State& state) {
  CycleOverSmall(state, [](Small& s, int i) { s.collection.SetProperty(s.names[i], CVariant(i)); });
}
BENCHMARK(BM_SetPropertyByName);

void BM_GetPropertyByName(benchmark::State& state) {
  CycleOverSmall(state, [](Small& s, int i) {
    benchmark::DoNotOptimize(s.collection.GetProperty(s.names[i]));
  });
}
BENCHMARK(BM_GetPropertyByName);

void BM_SetPropertyById(benchmark::State& state) {
  CycleOverSmall(state, [](Small& s, int i) { s.collection.SetProperty(s.ids[i], CVariant(i)); });
}
BENCHMARK(BM_SetPropertyById);

void BM_GetPropertyById(benchmark::State& state) {
  CycleOverSmall(
      state, [](Small& s, int i) { benchmark::DoNotOptimize(s.collection.GetProperty(s.ids[i])); });
}
BENCHMARK(BM_GetPropertyById);

// 100,000 collections of one class with 20 mixed properties each.
struct Many {
  Thing object;
  std::vector<CPropertyCollection> collections;

  Many() {
    const std::vector<std::wstring> names = Names(kArchivedProperties);
    collections.reserve(kArchivedCount);
    for (int c = 0; c < kArchivedCount; ++c) {
      CPropertyCollection& collection = collections.emplace_back(&object);
      for (int p = 0; p < kArchivedProperties; ++p) {
        switch (p % 5) {
        case 0:
          collection.SetProperty(names[p], CVariant(c + p));
          break;
        case 1:
          collection.SetProperty(names[p], CVariant(c * 0.25));
          break;
        case 2:
          collection.SetProperty(names[p], CVariant(std::wstring(L"text ") + std::to_wstring(c)));
          break;
        case 3:
          collection.SetProperty(names[p], CVariant(c % 2 == 0));
          break;
        default:
          collection.SetProperty(names[p], CVariant(zrn::CColor::SteelBlue));
          break;
        }
      }
    }
  }

  static Many& Get() {
    static Many many;
    return many;
  }
};

// Writes every collection, with the scheme-due flag that each one begins with
// checked afterwards: only the first may carry the scheme. Returns the size
// written, or -1 when the check fails.
long long WriteChecked(std::vector<CPropertyCollection>& collections, zrn::GMemStream& stream) {
  zrn::GDbArchiveImpl ar(&stream);
  std::vector<long long> starts;
  starts.reserve(collections.size());
  for (CPropertyCollection& collection : collections) {
    starts.push_back(ar.DevicePos());
    collection.Serialize(ar);
  }
  for (std::size_t i = 0; i < starts.size(); ++i)
    if ((stream.GetData()[starts[i]] != 0) != (i == 0))
      return -1;
  return ar.DevicePos();
}

void BM_Serialize100k(benchmark::State& state) {
  auto& collections = Many::Get().collections;
  zrn::GMemStream stream(true, nullptr, 0);
  const long long expected = WriteChecked(collections, stream);
  if (expected < 0) {
    state.SkipWithError("the scheme was written more than once");
    return;
  }
  long long written = 0;
  for (auto _ : state) {
    zrn::GDbArchiveImpl ar(&stream);
    for (CPropertyCollection& collection : collections)
      collection.Serialize(ar);
    written = ar.DevicePos();
    benchmark::DoNotOptimize(stream.GetData());
  }
  if (written != expected)
    state.SkipWithError("the timed stream differs from the checked one");
  state.SetItemsProcessed(state.iterations() * kArchivedCount);
  state.SetBytesProcessed(state.iterations() * written);
}
BENCHMARK(BM_Serialize100k)->Unit(benchmark::kMillisecond)->MinWarmUpTime(0.5);

// The archive of all the collections, checked, and collections to read it
// into, kept across runs.
struct Archived {
  std::vector<char> bytes;
  std::vector<CPropertyCollection> readers;
  bool ok = false;

  Archived() {
    Many& many = Many::Get();
    zrn::GMemStream written(true, nullptr, 0);
    const long long size = WriteChecked(many.collections, written);
    if (size < 0)
      return;
    ok = true;
    bytes.assign(written.GetData(), written.GetData() + size);
    readers.assign(many.collections.size(), CPropertyCollection(&many.object));
    Read(); // warms up, and fills the readers for BM_Read100kAgain
  }

  static Archived& Get() {
    static Archived archived;
    return archived;
  }

  void Read() {
    zrn::GMemStream stream(false, bytes.data(), static_cast<unsigned int>(bytes.size()));
    zrn::GDbArchiveImpl ar(&stream);
    for (CPropertyCollection& reader : readers)
      reader.Serialize(ar);
  }

  bool ReadBack() {
    CPropertyCollection& last = readers.back();
    return last.GetProperty(L"property_2").toWString() ==
           L"text " + std::to_wstring(kArchivedCount - 1);
  }
};

// Reading into collections that hold the values of an earlier read: the
// parsing cost, with the map nodes reused.
void BM_Read100kAgain(benchmark::State& state) {
  Archived& archived = Archived::Get();
  if (!archived.ok) {
    state.SkipWithError("the scheme was written more than once");
    return;
  }
  for (auto _ : state) {
    archived.Read();
    benchmark::DoNotOptimize(archived.readers.back());
  }
  if (!archived.ReadBack())
    state.SkipWithError("the collections did not read back");
  state.SetItemsProcessed(state.iterations() * kArchivedCount);
  state.SetBytesProcessed(state.iterations() * static_cast<long long>(archived.bytes.size()));
}
BENCHMARK(BM_Read100kAgain)->Unit(benchmark::kMillisecond)->MinWarmUpTime(0.5);

// Reading into new, empty collections, as a document load does: every value
// and map node is allocated. Making and destroying the collections is not
// timed.
void BM_Read100kFresh(benchmark::State& state) {
  Archived& archived = Archived::Get();
  if (!archived.ok) {
    state.SkipWithError("the scheme was written more than once");
    return;
  }
  for (auto _ : state) {
    state.PauseTiming();
    archived.readers.assign(archived.readers.size(), CPropertyCollection(&Many::Get().object));
    state.ResumeTiming();
    archived.Read();
    benchmark::DoNotOptimize(archived.readers.back());
  }
  if (!archived.ReadBack())
    state.SkipWithError("the collections did not read back");
  state.SetItemsProcessed(state.iterations() * kArchivedCount);
  state.SetBytesProcessed(state.iterations() * static_cast<long long>(archived.bytes.size()));
}
BENCHMARK(BM_Read100kFresh)->Unit(benchmark::kMillisecond)->MinWarmUpTime(0.5);

} // namespace

BENCHMARK_MAIN();
