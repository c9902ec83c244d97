#include <zrn/System/Random.h>
#include <zrn/System/Stopwatch.h>

#include "Platform/Platform.h"

#include <atomic>

namespace zrn {
namespace {

std::int64_t ReadBase() {
  std::int64_t counter = 0;
  platform::ReadPerformanceCounter(counter);
  return counter;
}

// Read while the library loads.
const std::int64_t g_nBaseCounter = ReadBase();

// One clock's state. Relaxed atomics: concurrent callers may both re-read the
// frequency, and every value either writes is valid on its own.
struct ClockState {
  std::atomic<std::int64_t> frequency{0};
  std::atomic<std::int32_t> threshold{-1};
  std::atomic<std::int32_t> last{0};

  // False (and nothing changed) when the frequency cannot be read.
  bool Refresh(std::int32_t step) {
    if (threshold.load(std::memory_order_relaxed) >= last.load(std::memory_order_relaxed))
      return true;
    std::int64_t f = 0;
    if (!platform::ReadPerformanceFrequency(f) || f == 0)
      return false;
    frequency.store(f, std::memory_order_relaxed);
    threshold.store(last.load(std::memory_order_relaxed) + step, std::memory_order_relaxed);
    return true;
  }
};

ClockState g_tickClock;
ClockState g_milliClock;

std::int64_t Elapsed() {
  std::int64_t counter = 0;
  platform::ReadPerformanceCounter(counter);
  return counter - g_nBaseCounter;
}

} // namespace

const int CRandom::RANDOM_MAX = 32767;

long CStopwatch::GetTickCount() {
  if (!g_tickClock.Refresh(5))
    return 0;
  const std::int64_t f = g_tickClock.frequency.load(std::memory_order_relaxed);
  const auto value = static_cast<std::int32_t>(Elapsed() * 1000 / f);
  g_tickClock.last.store(value, std::memory_order_relaxed);
  return value;
}

long CStopwatch::GetCurrentMilliSec() {
  if (!g_milliClock.Refresh(5000))
    return 0;
  const auto f = static_cast<std::uint64_t>(g_milliClock.frequency.load(std::memory_order_relaxed));
  return static_cast<std::int32_t>(static_cast<std::uint64_t>(Elapsed()) * 1000 / f);
}

void CStopwatch::Start() {
  if (running)
    return;
  start = GetTickCount();
  running = true;
}

void CStopwatch::Stop() {
  if (!running)
    return;
  elapsed = GetTickCount() - start;
  running = false;
}

void CStopwatch::Restart() {
  Stop();
  elapsed = 0;
  start = 0;
  Start();
}

void CStopwatch::Reset() {
  elapsed = 0;
  running = false;
  start = 0;
}

long CStopwatch::GetElapsedMilliseconds() const { return elapsed; }

bool CStopwatch::IsRunning() const { return running; }

} // namespace zrn
