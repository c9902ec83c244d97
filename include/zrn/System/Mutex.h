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
class ZRN_API CMutex {
public:
  /// Creates a mutex that no thread owns.
  CMutex();
  /// Destroys the mutex; it must not be owned.
  ~CMutex();

  CMutex(CMutex const&) = delete;
  CMutex& operator=(CMutex const&) = delete;

  /// Waits without time limit until the calling thread owns the mutex.
  void Lock();
  /// Releases one level of ownership held by the calling thread.
  void Unlock();

private:
  std::mutex m_mutex;
  std::atomic<std::thread::id> m_owner;
  unsigned m_nDepth = 0;
};

/// Owns one level of a CMutex from construction to destruction.
class ZRN_API CLock {
public:
  /// Waits for `mutex` without time limit and keeps a reference to it.
  explicit CLock(CMutex& mutex);
  /// Releases the level taken by the constructor.
  ~CLock();

  CLock(CLock const&) = delete;
  CLock& operator=(CLock const&) = delete;

private:
  CMutex& m_mutex;
};

} // namespace zrn

#endif // ZRN_SYSTEM_MUTEX_H
