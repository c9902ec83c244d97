// System services: mapped_malloc/mapped_free pairs of 64-512 bytes with a
// ring of 4,096 live blocks, next to a bare Boost.Interprocess managed mapped
// file doing the same and glibc malloc; the two millisecond clocks per call;
// and timer dispatch, 10,000 due timers pumped on one thread.
//
// The mapped files are created in the current folder and removed at exit.
#include <zrn/System/MappedMalloc.h>
#include <zrn/System/Stopwatch.h>
#include <zrn/System/Timer.h>

#include <benchmark/benchmark.h>

#include <boost/interprocess/file_mapping.hpp>
#include <boost/interprocess/managed_mapped_file.hpp>

#include <array>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <thread>
#include <vector>

namespace {

namespace bip = boost::interprocess;

constexpr std::size_t kRing = 4096;

// Sizes from 64 to 512 bytes in a fixed pseudo-random order.
std::array<std::size_t, kRing> const& Sizes() {
  static const auto sizes = [] {
    std::array<std::size_t, kRing> s{};
    unsigned state = 1;
    for (std::size_t& size : s) {
      state = state * 214013u + 2531011u;
      size = 64 + ((state >> 16) % 449);
    }
    return s;
  }();
  return sizes;
}

// Replaces the oldest of 4,096 live blocks each iteration.
template <class Alloc, class Free>
void RingOfBlocks(benchmark::State& state, Alloc alloc, Free release) {
  std::vector<void*> ring(kRing);
  auto const& sizes = Sizes();
  for (std::size_t i = 0; i < kRing; ++i)
    ring[i] = alloc(sizes[i]);
  std::size_t at = 0;
  for (auto _ : state) {
    release(ring[at]);
    ring[at] = alloc(sizes[(at * 7) % kRing]);
    benchmark::DoNotOptimize(ring[at]);
    at = (at + 1) % kRing;
  }
  for (void* block : ring)
    release(block);
}

void BM_MappedMalloc(benchmark::State& state) {
  RingOfBlocks(
      state, [](std::size_t size) { return zrn::mapped_malloc(size); },
      [](void* p) { zrn::mapped_free(p); });
}
BENCHMARK(BM_MappedMalloc);

void BM_BareManagedMappedFile(benchmark::State& state) {
  static constexpr char kName[] = "zrn_bench_bare_mapped_file";
  bip::file_mapping::remove(kName);
  bip::managed_mapped_file file(bip::create_only, kName, 16777232 + 1024);
  RingOfBlocks(
      state, [&](std::size_t size) { return file.allocate(size); },
      [&](void* p) { file.deallocate(p); });
  bip::file_mapping::remove(kName);
}
BENCHMARK(BM_BareManagedMappedFile);

void BM_GlibcMalloc(benchmark::State& state) {
  RingOfBlocks(
      state, [](std::size_t size) { return std::malloc(size); }, [](void* p) { std::free(p); });
}
BENCHMARK(BM_GlibcMalloc);

void BM_GetTickCount(benchmark::State& state) {
  for (auto _ : state)
    benchmark::DoNotOptimize(zrn::CStopwatch::GetTickCount());
}
BENCHMARK(BM_GetTickCount);

void BM_GetCurrentMilliSec(benchmark::State& state) {
  for (auto _ : state)
    benchmark::DoNotOptimize(zrn::CStopwatch::GetCurrentMilliSec());
}
BENCHMARK(BM_GetCurrentMilliSec);

void CountTick(void* data, unsigned long) { ++*static_cast<std::size_t*>(data); }

// 10,000 timers all due at once, dispatched by one pump; reported per
// callback. The wait for them to fall due is not timed.
void BM_TimerDispatch(benchmark::State& state) {
  constexpr int kTimers = 10000;
  std::size_t calls = 0;
  std::vector<std::unique_ptr<zrn::CTimer>> timers;
  for (int i = 0; i < kTimers; ++i) {
    timers.push_back(std::make_unique<zrn::CTimer>(10, &CountTick, &calls));
    timers.back()->Start();
  }
  for (auto _ : state) {
    state.PauseTiming();
    std::this_thread::sleep_for(std::chrono::milliseconds(12));
    state.ResumeTiming();
    benchmark::DoNotOptimize(zrn::PumpThreadTimers(0));
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(calls));
  state.counters["ns_per_callback"] = benchmark::Counter(
      static_cast<double>(calls), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_TimerDispatch)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  bip::file_mapping::remove("zrn_mapped_file");
  return 0;
}
