// Periodic callbacks on the thread that started them.
//
// A started CTimer fires only while its thread pumps its timers:
//
//   zrn::CTimer timer(100, &OnTick, &state);
//   timer.Start();
//   while (running)
//     zrn::PumpThreadTimers(50); // waits up to 50 ms, then calls due timers
#ifndef ZRN_SYSTEM_TIMER_H
#define ZRN_SYSTEM_TIMER_H

#include <zrn/Export.h>

#include <cstddef>
#include <cstdint>

namespace zrn {

/// Waits until one of the calling thread's timers is due or `maxWaitMs` has
/// passed, then calls every due timer of this thread once. Returns the number
/// of calls. Callbacks may start, stop or destroy timers.
ZRN_API std::size_t PumpThreadTimers(unsigned long maxWaitMs);

/// A periodic callback: every interval (at least 10 ms) the thread that
/// called Start calls `callback(userData, time)` from PumpThreadTimers, where
/// `time` is the millisecond clock value at which the call fell due.
///
/// A started timer is in the process-wide timer table under its identifier;
/// a stopped or destroyed one is not, so no callback ever reaches a destroyed
/// timer. Start, Stop and destruction may happen on any thread, also from
/// within a callback; callbacks run under the table's lock.
class ZRN_API CTimer {
public:
  using Callback = void (*)(void* userData, unsigned long time);

  /// Keeps the interval, callback and user data; starts nothing.
  CTimer(int intervalMs, Callback callback, void* userData);
  CTimer(CTimer const& other) = default;
  /// Stops this timer if it runs, then copies the fields; the copy shares the
  /// source's identifier, so stop a timer before copying it.
  CTimer& operator=(CTimer const& other);
  /// Stops the timer.
  ~CTimer();

  /// Starts the timer on the calling thread; a running timer is stopped
  /// first.
  void Start();
  /// Stops the timer; nothing for a stopped one.
  void Stop();

private:
  static void TimerProc(void* window, unsigned int message, std::uintptr_t id, unsigned long time);

  Callback m_pCallback;
  void* m_pUserData;
  std::uintptr_t m_nTimerID = 0;
  int m_nElapse;
};

} // namespace zrn

#endif // ZRN_SYSTEM_TIMER_H
