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

// Two kinds of observer, alternating, as in a host: with a single kind the
// compiler could inline the call in the plain loop, which no real loop over
// observers of several classes gets.
struct Observer : zrn::IObserver {
  unsigned long long sum = 0;
  virtual ~Observer() = default;
};
struct Counter final : Observer {
  void Update(unsigned int code, void*) override { sum += code; }
};
struct Tally final : Observer {
  void Update(unsigned int code, void*) override { sum ^= code; }
};

// Observers for the benchmark's argument: kinds alternate.
std::vector<std::unique_ptr<Observer>> MakeObservers(benchmark::State const& state) {
  std::vector<std::unique_ptr<Observer>> observers;
  for (long i = 0; i < state.range(0); ++i)
    observers.push_back(i % 2 ? std::unique_ptr<Observer>(new Tally)
                              : std::unique_ptr<Observer>(new Counter));
  return observers;
}

void SetCallsPerIteration(benchmark::State& state) {
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_GSubjectNotify(benchmark::State& state) {
  auto const observers = MakeObservers(state);
  zrn::GSubject subject;
  for (auto const& o : observers)
    subject.Attach(o.get());
  for (auto _ : state)
    subject.Notify(1, nullptr);
  benchmark::DoNotOptimize(observers.front()->sum);
  SetCallsPerIteration(state);
}

void BM_VectorLoopNotify(benchmark::State& state) {
  auto const storage = MakeObservers(state);
  std::vector<zrn::IObserver*> observers;
  for (auto const& o : storage)
    observers.push_back(o.get());
  for (auto _ : state) {
    for (zrn::IObserver* o : observers)
      o->Update(1, nullptr);
    benchmark::ClobberMemory();
  }
  benchmark::DoNotOptimize(storage.front()->sum);
  SetCallsPerIteration(state);
}

void BM_Signals2Notify(benchmark::State& state) {
  auto const observers = MakeObservers(state);
  boost::signals2::signal<void(unsigned int, void*)> signal;
  for (auto const& o : observers) {
    zrn::IObserver* observer = o.get();
    signal.connect([observer](unsigned int code, void* data) { observer->Update(code, data); });
  }
  for (auto _ : state)
    signal(1, nullptr);
  benchmark::DoNotOptimize(observers.front()->sum);
  SetCallsPerIteration(state);
}

void BM_AttachDetach(benchmark::State& state) {
  auto const observers = MakeObservers(state);
  for (auto _ : state) {
    zrn::GSubject subject;
    for (auto const& o : observers)
      subject.Attach(o.get());
    for (auto const& o : observers)
      subject.Detach(o.get());
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(BM_VectorLoopNotify)->Arg(10)->Arg(100)->Arg(10000);
BENCHMARK(BM_GSubjectNotify)->Arg(10)->Arg(100)->Arg(10000);
BENCHMARK(BM_Signals2Notify)->Arg(10)->Arg(100)->Arg(10000);
BENCHMARK(BM_AttachDetach)->Arg(100000)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
