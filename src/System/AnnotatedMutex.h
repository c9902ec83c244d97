// Standard and Boost locks, wrapped so that the thread-safety analysis knows
// them: data a lock guards is declared ZRN_GUARDED_BY(theWrapper) and taken
// with the scoped guards below. The wrappers add no state and no code.
#ifndef ZRN_SRC_SYSTEM_ANNOTATEDMUTEX_H
#define ZRN_SRC_SYSTEM_ANNOTATEDMUTEX_H

#include <zrn/ThreadSafety.h>

namespace zrn::detail {

/// A lock of type `Mutex` (std::mutex, std::shared_mutex, a recursive or
/// interprocess mutex...) seen by the analysis as a capability. For recursive
/// types the analysis still models one level: nested locking must opt out.
template <class Mutex> class ZRN_CAPABILITY("mutex") CAnnotatedMutex {
public:
  void lock() ZRN_ACQUIRE() { m_mutex.lock(); }
  bool try_lock() ZRN_THREAD_ANNOTATION(try_acquire_capability(true)) { return m_mutex.try_lock(); }
  void unlock() ZRN_RELEASE() { m_mutex.unlock(); }
  void lock_shared() ZRN_ACQUIRE_SHARED() { m_mutex.lock_shared(); }
  void unlock_shared() ZRN_THREAD_ANNOTATION(release_shared_capability()) {
    m_mutex.unlock_shared();
  }

private:
  Mutex m_mutex;
};

/// Holds `mutex` exclusively for the guard's lifetime.
template <class Lockable> class ZRN_SCOPED_CAPABILITY CScopedLock {
public:
  explicit CScopedLock(Lockable& mutex) ZRN_ACQUIRE(mutex) : m_mutex(mutex) { m_mutex.lock(); }
  ~CScopedLock() ZRN_RELEASE() { m_mutex.unlock(); }
  CScopedLock(CScopedLock const&) = delete;
  CScopedLock& operator=(CScopedLock const&) = delete;

private:
  Lockable& m_mutex;
};

/// Holds `mutex` shared for the guard's lifetime.
template <class Lockable> class ZRN_SCOPED_CAPABILITY CSharedScopedLock {
public:
  explicit CSharedScopedLock(Lockable& mutex) ZRN_ACQUIRE_SHARED(mutex) : m_mutex(mutex) {
    m_mutex.lock_shared();
  }
  ~CSharedScopedLock() ZRN_RELEASE() { m_mutex.unlock_shared(); }
  CSharedScopedLock(CSharedScopedLock const&) = delete;
  CSharedScopedLock& operator=(CSharedScopedLock const&) = delete;

private:
  Lockable& m_mutex;
};

} // namespace zrn::detail

#endif
