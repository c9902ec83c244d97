// Per-thread timer queues. Each thread keeps its due times in an ordered
// multimap; one process-wide table maps identifiers to their entries so that
// any thread may stop any timer. Rescheduling moves a node instead of
// allocating one.
#include "Platform/Platform.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <unordered_map>

namespace zrn::platform {
namespace {

using Clock = std::chrono::steady_clock;
using Queue = std::multimap<Clock::time_point, std::uintptr_t>;

struct ThreadQueue;

struct TimerEntry {
  ThreadQueue* owner;
  Clock::duration interval;
  TimerProcedure procedure;
  Queue::iterator position;
};

struct Timers {
  std::mutex mutex;
  std::unordered_map<std::uintptr_t, TimerEntry> entries;
  std::uintptr_t nextId = 1;
};

Timers& AllTimers() {
  static Timers* timers = new Timers; // never destroyed: threads may end after exit starts
  return *timers;
}

struct ThreadQueue {
  Queue due;
  std::condition_variable wake;

  ~ThreadQueue() {
    Timers& timers = AllTimers();
    std::lock_guard<std::mutex> lock(timers.mutex);
    for (auto const& [when, id] : due)
      timers.entries.erase(id);
  }
};

ThreadQueue& OwnQueue() {
  thread_local ThreadQueue queue;
  return queue;
}

unsigned long MessageTime(Clock::time_point when) {
  return static_cast<unsigned long>(
      std::chrono::duration_cast<std::chrono::milliseconds>(when.time_since_epoch()).count());
}

} // namespace

std::uintptr_t SetThreadTimer(unsigned intervalMs, TimerProcedure procedure) {
  ThreadQueue& queue = OwnQueue();
  Timers& timers = AllTimers();
  const auto interval = std::chrono::milliseconds(std::max(intervalMs, kMinimumTimerInterval));
  std::lock_guard<std::mutex> lock(timers.mutex);
  std::uintptr_t id = timers.nextId++;
  if (id == 0) // wrapped round
    id = timers.nextId++;
  const auto position = queue.due.emplace(Clock::now() + interval, id);
  timers.entries.emplace(id, TimerEntry{&queue, interval, procedure, position});
  return id;
}

bool KillThreadTimer(std::uintptr_t id) {
  Timers& timers = AllTimers();
  std::lock_guard<std::mutex> lock(timers.mutex);
  const auto found = timers.entries.find(id);
  if (found == timers.entries.end())
    return false;
  found->second.owner->due.erase(found->second.position);
  timers.entries.erase(found);
  return true;
}

std::size_t PumpThreadTimers(unsigned long maxWaitMs) {
  ThreadQueue& queue = OwnQueue();
  Timers& timers = AllTimers();
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(maxWaitMs);
  std::unique_lock<std::mutex> lock(timers.mutex);
  Clock::time_point now = Clock::now();
  while (now < deadline && (queue.due.empty() || queue.due.begin()->first > now)) {
    const Clock::time_point until =
        queue.due.empty() ? deadline : std::min(deadline, queue.due.begin()->first);
    queue.wake.wait_until(lock, until);
    now = Clock::now();
  }
  // Only timers due by `now` run, and each is rescheduled after `now`, so the
  // round ends even when callbacks start or stop timers.
  std::size_t dispatched = 0;
  while (!queue.due.empty() && queue.due.begin()->first <= now) {
    auto node = queue.due.extract(queue.due.begin());
    const std::uintptr_t id = node.mapped();
    const Clock::time_point when = node.key();
    TimerEntry& entry = timers.entries.at(id);
    node.key() = now + entry.interval;
    entry.position = queue.due.insert(std::move(node));
    const TimerProcedure procedure = entry.procedure;
    lock.unlock();
    procedure(nullptr, kTimerMessage, id, MessageTime(when));
    ++dispatched;
    lock.lock();
  }
  return dispatched;
}

} // namespace zrn::platform
