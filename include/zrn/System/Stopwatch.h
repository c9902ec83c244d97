// A millisecond stopwatch and the process's millisecond clocks.
//
//   zrn::CStopwatch watch;
//   watch.Start();
//   ...
//   watch.Stop();
//   long ms = watch.GetElapsedMilliseconds();
#ifndef ZRN_SYSTEM_STOPWATCH_H
#define ZRN_SYSTEM_STOPWATCH_H

#include <zrn/Export.h>

namespace zrn {

/// Measures the milliseconds between Start and Stop on GetTickCount's clock.
///
/// Stopped or running; GetElapsedMilliseconds is the last Stop's measurement,
/// never a live reading. One instance is used by one thread at a time; the
/// static clocks may be called from any thread.
class ZRN_API CStopwatch {
public:
  CStopwatch() = default;
  CStopwatch(CStopwatch const&) = default;
  CStopwatch& operator=(CStopwatch const&) = default;

  /// Starts a stopped stopwatch; a running one keeps its start.
  void Start();
  /// Stops a running stopwatch and keeps the measurement.
  void Stop();
  /// Stops if running, clears the measurement and starts afresh.
  void Restart();
  /// Stops without keeping a measurement; everything becomes 0.
  void Reset();
  /// The measurement of the last Stop (0 before any).
  long GetElapsedMilliseconds() const;
  bool IsRunning() const;

  /// Milliseconds since the library was loaded, truncated to 32 bits.
  static long GetTickCount();
  /// The same clock with its own state: the frequency is read once, and the
  /// division is unsigned.
  static long GetCurrentMilliSec();

private:
  long elapsed = 0;
  bool running = false;
  long start = 0;
};

} // namespace zrn

#endif // ZRN_SYSTEM_STOPWATCH_H
