// Progress of long phases on standard error: once a phase has run for a
// second, a line each second with its elapsed time and how far it got.
#ifndef ZRN_EXAMPLES_SAMPLE_HOST_PROGRESS_H
#define ZRN_EXAMPLES_SAMPLE_HOST_PROGRESS_H

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>

/// Watches one phase from a thread of its own while the phase runs on the
/// caller's. The phase reports how far it got through the static Report,
/// which goes to the clock alive at the time (at most one exists at once).
/// Report is cheap and may be called for every item.
class CPhaseClock {
public:
  /// Starts watching the phase `name`.
  explicit CPhaseClock(std::wstring name);
  /// Stops watching; prints nothing more.
  ~CPhaseClock();
  CPhaseClock(CPhaseClock const&) = delete;
  CPhaseClock& operator=(CPhaseClock const&) = delete;

  /// `done` of `total` items of the running phase are through; nothing when
  /// no phase is watched.
  static void Report(std::size_t done, std::size_t total);

private:
  void Watch();

  static std::atomic<CPhaseClock*> s_current;
  std::wstring m_name;
  std::atomic<std::size_t> m_done{0};
  std::atomic<std::size_t> m_total{0};
  std::mutex m_mutex;
  std::condition_variable m_wake;
  bool m_stop = false; // guarded by m_mutex
  std::thread m_watcher;
};

#endif
