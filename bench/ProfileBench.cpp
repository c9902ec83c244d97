// Cost of profiling a scope, warm (every node and profile exists already):
// three nested CProfile scopes, next to three nested bare scopes and three
// nested std::chrono::steady_clock pairs; and one QProfileStarter scope next
// to a bare clock_gettime(CLOCK_MONOTONIC) pair and a bare rdtsc pair, the two
// clock reads it could be built on. Divide the three-deep figures by three
// for one scope.
//
// The call-tree profiler writes its summary when the program ends, to
// standard output and to QProfile.txt beside the executable.
#include <zrn/Profile/Profiler.h>
#include <zrn/Profile/QProfile.h>

#include <benchmark/benchmark.h>

#include <chrono>
#include <ctime>

#if defined(__x86_64__)
#include <x86intrin.h>
#endif

namespace {

void BM_BareScope3(benchmark::State& state) {
  int a = 0, b = 0, c = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(a);
    {
      benchmark::DoNotOptimize(b);
      {
        benchmark::DoNotOptimize(c);
        benchmark::ClobberMemory();
      }
    }
  }
}
BENCHMARK(BM_BareScope3);

void BM_SteadyClockPair3(benchmark::State& state) {
  using Clock = std::chrono::steady_clock;
  for (auto _ : state) {
    const auto a = Clock::now();
    const auto b = Clock::now();
    const auto c = Clock::now();
    benchmark::DoNotOptimize(Clock::now() - c);
    benchmark::DoNotOptimize(Clock::now() - b);
    benchmark::DoNotOptimize(Clock::now() - a);
  }
}
BENCHMARK(BM_SteadyClockPair3);

void BM_CProfileScope3(benchmark::State& state) {
  for (auto _ : state) {
    zrn::CProfile outer(L"outer section");
    {
      zrn::CProfile middle(L"middle section");
      {
        zrn::CProfile inner(L"inner section");
        benchmark::ClobberMemory();
      }
    }
  }
  zrn::CSingleton<zrn::CProfileManager>::GetInstance().ResetProfile();
}
BENCHMARK(BM_CProfileScope3);

long long MonotonicNs() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000000000LL + now.tv_nsec;
}

void BM_ClockGettimePair(benchmark::State& state) {
  for (auto _ : state) {
    const long long start = MonotonicNs();
    benchmark::DoNotOptimize(MonotonicNs() - start);
  }
}
BENCHMARK(BM_ClockGettimePair);

#if defined(__x86_64__)
void BM_RdtscPair(benchmark::State& state) {
  for (auto _ : state) {
    const unsigned long long start = __rdtsc();
    benchmark::DoNotOptimize(__rdtsc() - start);
  }
}
BENCHMARK(BM_RdtscPair);
#endif

void BM_QProfileStarter(benchmark::State& state) {
  static QProfile region("benchmarked region", false, __FILE__, __LINE__);
  for (auto _ : state) {
    QProfileStarter run(&region);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_QProfileStarter);

} // namespace

BENCHMARK_MAIN();
