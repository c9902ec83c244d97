// Delivering a notification to 10, 100 and 10,000 observers through a
// GSubject, next to a plain loop over a vector of observer pointers (the
// floor: one virtual call each) and a Boost.Signals2 signal with one slot per
// observer. Figures are per delivered call.
//
// Attaching and then detaching 100,000 observers measures the bookkeeping:
// past 60 observers the subject keeps them in an ordered set, so each
// operation stays logarithmic.
#include <zrn/Notify/Subject.h>

#include <benchmark/benchmark.h>
#include <boost/signals2/signal.hpp>

#include <memory>
#include <vector>

namespace {

struct Counter final : zrn::IObserver {
  unsigned long long sum = 0;
  void Update(unsigned int code, void*) override { sum += code; }
};

void SetCallsPerIteration(benchmark::State& state) {
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_GSubjectNotify(benchmark::State& state) {
  std::vector<Counter> observers(state.range(0));
  zrn::GSubject subject;
  for (Counter& o : observers)
    subject.Attach(&o);
  for (auto _ : state)
    subject.Notify(1, nullptr);
  benchmark::DoNotOptimize(observers.front().sum);
  SetCallsPerIteration(state);
}

void BM_VectorLoopNotify(benchmark::State& state) {
  std::vector<Counter> storage(state.range(0));
  std::vector<zrn::IObserver*> observers;
  for (Counter& o : storage)
    observers.push_back(&o);
  for (auto _ : state) {
    for (zrn::IObserver* o : observers)
      o->Update(1, nullptr);
    benchmark::ClobberMemory();
  }
  benchmark::DoNotOptimize(storage.front().sum);
  SetCallsPerIteration(state);
}

void BM_Signals2Notify(benchmark::State& state) {
  std::vector<Counter> observers(state.range(0));
  boost::signals2::signal<void(unsigned int, void*)> signal;
  for (Counter& o : observers)
    signal.connect([&o](unsigned int code, void* data) { o.Update(code, data); });
  for (auto _ : state)
    signal(1, nullptr);
  benchmark::DoNotOptimize(observers.front().sum);
  SetCallsPerIteration(state);
}

void BM_AttachDetach(benchmark::State& state) {
  std::vector<Counter> observers(state.range(0));
  for (auto _ : state) {
    zrn::GSubject subject;
    for (Counter& o : observers)
      subject.Attach(&o);
    for (Counter& o : observers)
      subject.Detach(&o);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(BM_VectorLoopNotify)->Arg(10)->Arg(100)->Arg(10000);
BENCHMARK(BM_GSubjectNotify)->Arg(10)->Arg(100)->Arg(10000);
BENCHMARK(BM_Signals2Notify)->Arg(10)->Arg(100)->Arg(10000);
BENCHMARK(BM_AttachDetach)->Arg(100000)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
