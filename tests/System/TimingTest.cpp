#include <zrn/System/Random.h>
#include <zrn/System/Stopwatch.h>
#include <zrn/System/Timer.h>

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <thread>
#include <vector>

namespace zrn {
namespace {

TEST(CStopwatch, StateRules) {
  CStopwatch watch;
  EXPECT_EQ(watch.GetElapsedMilliseconds(), 0);
  EXPECT_FALSE(watch.IsRunning());
  watch.Stop(); // before Start: nothing
  EXPECT_FALSE(watch.IsRunning());

  watch.Start();
  EXPECT_TRUE(watch.IsRunning());
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  watch.Start(); // keeps the first start
  watch.Stop();
  const long first = watch.GetElapsedMilliseconds();
  EXPECT_GE(first, 20);

  watch.Start();
  std::this_thread::sleep_for(std::chrono::milliseconds(5));
  EXPECT_EQ(watch.GetElapsedMilliseconds(), first); // no live reading
  watch.Restart();
  EXPECT_TRUE(watch.IsRunning());
  EXPECT_EQ(watch.GetElapsedMilliseconds(), 0);
  watch.Reset();
  EXPECT_FALSE(watch.IsRunning());
  EXPECT_EQ(watch.GetElapsedMilliseconds(), 0);
}

TEST(CStopwatch, ClocksAdvanceTogether) {
  const long tick = CStopwatch::GetTickCount();
  const long milli = CStopwatch::GetCurrentMilliSec();
  EXPECT_GE(tick, 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(15));
  EXPECT_GE(CStopwatch::GetTickCount(), tick + 15);
  EXPECT_GE(CStopwatch::GetCurrentMilliSec(), milli + 15);
}

TEST(CRandom, SequenceOfSeedOneAndRange) {
  CRandom random(1);
  const std::vector<int> expected = {41, 18467, 6334, 26500, 19169};
  std::vector<int> got;
  for (int i = 0; i < 5; ++i)
    got.push_back(random.Rand());
  EXPECT_EQ(got, expected);
  random.Srand(1);
  EXPECT_EQ(random.Rand(), 41);
  EXPECT_EQ(CRandom::RANDOM_MAX, 32767);
  for (int i = 0; i < 100000; ++i) {
    const int value = random.Rand();
    ASSERT_GE(value, 0);
    ASSERT_LE(value, CRandom::RANDOM_MAX);
  }
}

struct Ticks {
  int count = 0;
  unsigned long lastTime = 0;
  std::thread::id thread;
  std::unique_ptr<CTimer>* selfOwned = nullptr; // destroyed by its own callback
  CTimer* toStop = nullptr;
  CTimer* toStart = nullptr;
};

void Count(void* data, unsigned long time) {
  auto* ticks = static_cast<Ticks*>(data);
  ++ticks->count;
  ticks->lastTime = time;
  ticks->thread = std::this_thread::get_id();
  if (ticks->selfOwned)
    ticks->selfOwned->reset();
  if (ticks->toStop)
    ticks->toStop->Stop();
  if (ticks->toStart)
    ticks->toStart->Start();
}

// Pumps until `ticks` has counted `count` calls (the wait bound only keeps a
// broken timer from hanging the test).
void PumpUntil(Ticks const& ticks, int count) {
  for (int i = 0; i < 500 && ticks.count < count; ++i)
    PumpThreadTimers(20);
}

TEST(CTimer, FiresOnlyWhenItsThreadPumps) {
  Ticks ticks;
  CTimer timer(10, &Count, &ticks);
  timer.Start();
  std::this_thread::sleep_for(std::chrono::milliseconds(30));
  EXPECT_EQ(ticks.count, 0);                        // not pumped yet
  std::thread([] { PumpThreadTimers(30); }).join(); // another thread's pump
  EXPECT_EQ(ticks.count, 0);
  EXPECT_EQ(PumpThreadTimers(0), 1u); // overdue: fires once, not once per interval
  EXPECT_EQ(ticks.count, 1);
  EXPECT_EQ(ticks.thread, std::this_thread::get_id());
  PumpUntil(ticks, 3);
  EXPECT_EQ(ticks.count, 3);
  EXPECT_GT(ticks.lastTime, 0u);
}

TEST(CTimer, StoppedOrDestroyedTimersNeverFire) {
  Ticks ticks;
  {
    CTimer never(10, &Count, &ticks);
    never.Stop(); // never started: nothing
    CTimer destroyed(10, &Count, &ticks);
    destroyed.Start();
    destroyed.Start(); // restarting replaces its platform timer
  }
  CTimer stopped(10, &Count, &ticks);
  stopped.Start();
  stopped.Stop();
  std::this_thread::sleep_for(std::chrono::milliseconds(25));
  EXPECT_EQ(PumpThreadTimers(0), 0u);
  EXPECT_EQ(ticks.count, 0);
}

TEST(CTimer, CallbacksMayDestroyTheirTimerAndStartOthers) {
  Ticks started;
  CTimer later(10, &Count, &started);
  Ticks ticks;
  auto owned = std::make_unique<CTimer>(10, &Count, &ticks);
  ticks.selfOwned = &owned;
  ticks.toStart = &later;
  owned->Start();
  PumpUntil(ticks, 1);
  EXPECT_EQ(ticks.count, 1);
  EXPECT_EQ(owned, nullptr);
  PumpUntil(started, 2);
  EXPECT_EQ(ticks.count, 1); // the destroyed timer stayed silent
  EXPECT_EQ(started.count, 2);
}

TEST(CTimer, CallbacksMayStopAndRestartTimersWithinAPump) {
  Ticks first, second;
  CTimer early(10, &Count, &first);
  CTimer late(10, &Count, &second);
  early.Start();
  late.Start();
  std::this_thread::sleep_for(std::chrono::milliseconds(25));
  // Both are due in the same round; the first to fire stops the other.
  first.toStop = &late;
  EXPECT_EQ(PumpThreadTimers(0), 1u);
  EXPECT_EQ(second.count, 0);

  // A callback that restarts its own timer keeps it running.
  first.toStop = nullptr;
  first.toStart = &early;
  PumpUntil(first, 4);
  EXPECT_EQ(first.count, 4);

  // One that stops its own timer ends it; starting it again from outside
  // works, and the timer it stopped earlier may be started again too.
  first.toStart = nullptr;
  first.toStop = &early;
  PumpUntil(first, 5);
  std::this_thread::sleep_for(std::chrono::milliseconds(25));
  EXPECT_EQ(PumpThreadTimers(0), 0u);
  first.toStop = nullptr;
  early.Start();
  late.Start();
  PumpUntil(second, 2);
  PumpUntil(first, 7);
  EXPECT_GE(first.count, 7);
  EXPECT_GE(second.count, 2);
  early.Stop();
  late.Stop();
  std::this_thread::sleep_for(std::chrono::milliseconds(25));
  EXPECT_EQ(PumpThreadTimers(0), 0u);
}

TEST(CTimer, AnotherThreadMayDestroyATimer) {
  Ticks ticks;
  auto timer = std::make_unique<CTimer>(10, &Count, &ticks);
  timer->Start();
  std::thread([&] { timer.reset(); }).join();
  std::this_thread::sleep_for(std::chrono::milliseconds(25));
  EXPECT_EQ(PumpThreadTimers(0), 0u);
  EXPECT_EQ(ticks.count, 0);
}

} // namespace
} // namespace zrn
