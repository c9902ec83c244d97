// Thread-safety annotations: which lock guards which data, stated in the type.
//
// Under clang with -Wthread-safety the compiler checks that guarded data is
// only touched with its lock held and that every lock taken is released; under
// other compilers the macros expand to nothing. A lock type is marked
// ZRN_CAPABILITY, its scoped guard ZRN_SCOPED_CAPABILITY, and data beside a
// lock ZRN_GUARDED_BY(thatLock):
//
//   class CCounter {
//   public:
//     void Add() ZRN_EXCLUDES(m_mutex) { CLock lock(m_mutex); ++m_nCount; }
//   private:
//     CMutex m_mutex;
//     int m_nCount ZRN_GUARDED_BY(m_mutex) = 0;
//   };
#ifndef ZRN_THREADSAFETY_H
#define ZRN_THREADSAFETY_H

#if defined(__clang__)
#define ZRN_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define ZRN_THREAD_ANNOTATION(x)
#endif

/// Marks a class as a lock; `name` appears in the compiler's messages.
#define ZRN_CAPABILITY(name) ZRN_THREAD_ANNOTATION(capability(name))
/// Marks a class whose objects hold a lock from construction to destruction.
#define ZRN_SCOPED_CAPABILITY ZRN_THREAD_ANNOTATION(scoped_lockable)
/// The data member may be read or written only while `lock` is held.
#define ZRN_GUARDED_BY(lock) ZRN_THREAD_ANNOTATION(guarded_by(lock))
/// The pointee of the pointer member may be used only while `lock` is held.
#define ZRN_PT_GUARDED_BY(lock) ZRN_THREAD_ANNOTATION(pt_guarded_by(lock))
/// The function must be called with the locks held.
#define ZRN_REQUIRES(...) ZRN_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
/// The function must be called with the locks held at least shared.
#define ZRN_REQUIRES_SHARED(...) ZRN_THREAD_ANNOTATION(requires_shared_capability(__VA_ARGS__))
/// The function takes the locks (on `this` when none is named) and keeps them.
#define ZRN_ACQUIRE(...) ZRN_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
/// The function takes the locks shared and keeps them.
#define ZRN_ACQUIRE_SHARED(...) ZRN_THREAD_ANNOTATION(acquire_shared_capability(__VA_ARGS__))
/// The function releases locks held on entry (on `this` when none is named).
#define ZRN_RELEASE(...) ZRN_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
/// The function takes the locks itself, so it must not be called with them held.
#define ZRN_EXCLUDES(...) ZRN_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
/// Turns the check off for one function whose locking the analysis cannot
/// follow; say why beside every use.
#define ZRN_NO_THREAD_SAFETY_ANALYSIS ZRN_THREAD_ANNOTATION(no_thread_safety_analysis)

#endif // ZRN_THREADSAFETY_H
