// Costs of the variant: constructing, copying and destroying plain values
// (with the heap allocations they make counted, which should be none), the
// integer and text conversions, and archiving one million mixed variants into
// a memory stream.
#include <zrn/IO/DbArchiveImpl.h>
#include <zrn/IO/MemStream.h>
#include <zrn/Property/Variant.h>

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <string>
#include <vector>

namespace {

std::atomic<long long> g_nAllocations{0};

} // namespace

// Counts every allocation of the program, so that the plain-value benchmarks
// can show that they make none. (The compiler cannot see that these replace
// the global operators as a matching set.)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void* operator new(std::size_t size) {
  g_nAllocations.fetch_add(1, std::memory_order_relaxed);
  if (void* p = std::malloc(size ? size : 1))
    return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace {

void ReportAllocations(benchmark::State& state, long long before) {
  state.counters["allocs/iter"] = benchmark::Counter(
      static_cast<double>(g_nAllocations.load() - before), benchmark::Counter::kAvgIterations);
}

void BM_PlainConstructCopyDestroy(benchmark::State& state) {
  const long long before = g_nAllocations.load();
  int seed = 1;
  for (auto _ : state) {
    zrn::CVariant a(seed);
    zrn::CVariant b(a);
    b = 2.5;
    benchmark::DoNotOptimize(a);
    benchmark::DoNotOptimize(b);
    ++seed;
  }
  ReportAllocations(state, before);
}
BENCHMARK(BM_PlainConstructCopyDestroy);

void BM_ToIntOfInt(benchmark::State& state) {
  zrn::CVariant v(42);
  benchmark::DoNotOptimize(v);
  for (auto _ : state)
    benchmark::DoNotOptimize(v.toInt());
}
BENCHMARK(BM_ToIntOfInt);

void BM_ToStringOfDouble(benchmark::State& state) {
  zrn::CVariant v(1234.56789);
  for (auto _ : state)
    benchmark::DoNotOptimize(v.toString());
}
BENCHMARK(BM_ToStringOfDouble);

std::vector<zrn::CVariant> const& MixedVariants() {
  static const std::vector<zrn::CVariant> variants = [] {
    std::vector<zrn::CVariant> out;
    out.reserve(1000000);
    for (int i = 0; i < 1000000; ++i) {
      switch (i % 6) {
      case 0:
        out.emplace_back(i);
        break;
      case 1:
        out.emplace_back(i * 0.5);
        break;
      case 2:
        out.emplace_back("name " + std::to_string(i));
        break;
      case 3:
        out.emplace_back(zrn::CColor::SteelBlue);
        break;
      case 4:
        out.emplace_back(i % 2 == 0);
        break;
      default:
        out.emplace_back(static_cast<long long>(i) << 20);
        break;
      }
    }
    return out;
  }();
  return variants;
}

void BM_SerializeMillionMixed(benchmark::State& state) {
  auto& variants = const_cast<std::vector<zrn::CVariant>&>(MixedVariants());
  zrn::GMemStream stream(true, nullptr, 0);
  stream.EnsureResizeVector(16 << 20);
  for (auto _ : state) {
    zrn::GDbArchiveImpl ar(&stream);
    for (zrn::CVariant& v : variants)
      v.Serialize(ar);
    benchmark::DoNotOptimize(stream.GetData());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<long long>(variants.size()));
  state.SetBytesProcessed(state.iterations() * static_cast<long long>(stream.pos()));
}
BENCHMARK(BM_SerializeMillionMixed)->Unit(benchmark::kMillisecond)->MinWarmUpTime(0.5);

} // namespace

BENCHMARK_MAIN();
