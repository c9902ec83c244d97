// A re-entrant mutex and its scoped guard.
//
// CMutex is the library's lock for state shared between threads of one
// process. CLock holds one level of a CMutex for exactly its own lifetime, so
// that the lock is released on every path out of a block, exceptions included.
#ifndef ZRN_SYSTEM_MUTEX_H
#define ZRN_SYSTEM_MUTEX_H

#include <zrn/Export.h>

#include <atomic>
#include <mutex>
#include <thread>

namespace zrn {

/// An unnamed, re-entrant mutex.
///
/// The owning thread may lock it again without blocking and must unlock it as
/// many times as it locked it. Unlock from a thread that does not own the
/// mutex does nothing. Neither copyable nor movable. Thread-safe.
///
/// The lock annotations describe one level; the analysis does not know that
/// a second Lock by the owner succeeds, so code that relies on re-entry says
/// so where it switches the check off.
class ZRN_API ZRN_CAPABILITY("mutex") CMutex {
public:
  /// Creates a mutex that no thread owns.
  CMutex();
  /// Destroys the mutex; it must not be owned (asserted in Debug builds).
  ~CMutex();

  CMutex(CMutex const&) = delete;
  CMutex& operator=(CMutex const&) = delete;

  /// Waits without time limit until the calling thread owns the mutex.
  void Lock() ZRN_ACQUIRE();
  /// Releases one level of ownership held by the calling thread.
  void Unlock() ZRN_RELEASE();

private:
  std::mutex m_mutex;
  std::atomic<std::thread::id> m_owner;
  unsigned m_nDepth = 0;
};

/// Owns one level of a CMutex from construction to destruction.
class ZRN_API ZRN_SCOPED_CAPABILITY CLock {
public:
  /// Waits for `mutex` without time limit and keeps a reference to it.
  explicit CLock(CMutex& mutex) ZRN_ACQUIRE(mutex);
  /// Releases the level taken by the constructor.
  ~CLock() ZRN_RELEASE();

  CLock(CLock const&) = delete;
  CLock& operator=(CLock const&) = delete;

private:
  CMutex& m_mutex;
};

} // namespace zrn

#endif // ZRN_SYSTEM_MUTEX_H
