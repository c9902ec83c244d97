// Cost of taking and dropping a strong reference, single-threaded and
// uncontended, on a live object: a Ref/Unref pair on a CReferenced, the weak
// counter's AddRefLock followed by Unref, and CWeakPtr<T>::Lock (the returned
// CRefPtr dropped at once), and CWeakPtr<T>::Expired; next to a
// std::shared_ptr copy and destroy, a std::weak_ptr::lock and a
// std::weak_ptr::expired for comparison.
//
// main starts and joins one thread before anything is measured: until a
// process has had a second thread, the standard library counts shared_ptr
// references without atomic instructions, which would not compare like with
// like.
#include <zrn/Object/RefPtr.h>
#include <zrn/Object/WeakPtr.h>

#include <benchmark/benchmark.h>

#include <memory>
#include <thread>

namespace {

struct CBody : zrn::CReferenced {
  int value = 0;
};

struct Body {
  int value = 0;
};

void BM_RefUnref(benchmark::State& state) {
  auto body = zrn::MakeRef<CBody>(); // keeps the count above 0 throughout
  CBody* p = body.get();
  for (auto _ : state) {
    p->Ref();
    benchmark::DoNotOptimize(p);
    p->Unref();
  }
}
BENCHMARK(BM_RefUnref);

void BM_WeakCounterAddRefLock(benchmark::State& state) {
  auto body = zrn::MakeRef<CBody>();
  zrn::CRefPtr<zrn::CWeakPtrCounter> counter = zrn::GetWeakPtrCounter(body.get());
  for (auto _ : state) {
    zrn::CReferenced* p = counter->AddRefLock();
    benchmark::DoNotOptimize(p);
    p->Unref();
  }
}
BENCHMARK(BM_WeakCounterAddRefLock);

void BM_WeakPtrLock(benchmark::State& state) {
  auto body = zrn::MakeRef<CBody>();
  zrn::CWeakPtr<CBody> weak(body);
  for (auto _ : state) {
    zrn::CRefPtr<CBody> locked = weak.Lock();
    benchmark::DoNotOptimize(locked.get());
  }
}
BENCHMARK(BM_WeakPtrLock);

void BM_WeakPtrExpired(benchmark::State& state) {
  auto body = zrn::MakeRef<CBody>();
  zrn::CWeakPtr<CBody> weak(body);
  for (auto _ : state) {
    bool expired = weak.Expired();
    benchmark::DoNotOptimize(expired);
    benchmark::ClobberMemory(); // read the pointer again on every pass
  }
}
BENCHMARK(BM_WeakPtrExpired);

void BM_SharedPtrCopy(benchmark::State& state) {
  auto body = std::make_shared<Body>();
  for (auto _ : state) {
    std::shared_ptr<Body> copy = body;
    benchmark::DoNotOptimize(copy.get());
  }
}
BENCHMARK(BM_SharedPtrCopy);

void BM_StdWeakPtrLock(benchmark::State& state) {
  auto body = std::make_shared<Body>();
  std::weak_ptr<Body> weak = body;
  for (auto _ : state) {
    std::shared_ptr<Body> locked = weak.lock();
    benchmark::DoNotOptimize(locked.get());
  }
}
BENCHMARK(BM_StdWeakPtrLock);

void BM_StdWeakPtrExpired(benchmark::State& state) {
  auto body = std::make_shared<Body>();
  std::weak_ptr<Body> weak = body;
  for (auto _ : state) {
    bool expired = weak.expired();
    benchmark::DoNotOptimize(expired);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_StdWeakPtrExpired);

} // namespace

int main(int argc, char** argv) {
  std::thread([] {}).join(); // see the note at the top
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv))
    return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
