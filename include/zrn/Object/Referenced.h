// Reference-counted objects and the weak counter that observes them.
//
// Objects shared between owners derive from CReferenced: each owner takes a
// reference with Ref and drops it with Unref, and the Unref that brings the
// count from 1 to 0 destroys the object on the calling thread. Holders that
// must not keep an object alive share one CWeakPtrCounter for it, which hands
// out a strong reference only while the object lives. CRefPtr and CWeakPtr
// (RefPtr.h, WeakPtr.h) are the usual front ends.
#ifndef ZRN_OBJECT_REFERENCED_H
#define ZRN_OBJECT_REFERENCED_H

#include <zrn/Export.h>
#include <zrn/System/detail/MutexStorage.h>

#include <atomic>
#include <cassert>

namespace zrn {

/// Base of every object shared by count.
///
/// A new object has count 0; its first owner calls Ref. An object whose count
/// never rises above 0 is never destroyed by counting: its creator destroys it,
/// for instance with SignalAndDelete(true). Ref and Unref are interlocked and
/// may be called from several threads at once on one object.
class ZRN_API CReferenced {
public:
  /// Creates an object with count 0.
  CReferenced() noexcept : m_nRefCount(0) {}
  /// Gives the copy its own count of 0: counts belong to objects, not values.
  CReferenced(CReferenced const&) noexcept : m_nRefCount(0) {}
  /// Copies nothing: the target keeps its own count.
  CReferenced& operator=(CReferenced const&) noexcept { return *this; }

  /// Adds one reference.
  virtual void Ref();
  /// Drops one reference; destroys the object when the count reaches 0.
  virtual void Unref();
  /// Drops one reference and never destroys, even when the count reaches 0.
  virtual void UnrefNoDelete() const;

  /// The current count (a plain read; it may change at once on other threads).
  int ReferenceCount() const noexcept { return m_nRefCount.load(std::memory_order_relaxed); }

  /// Destroys the object whatever its count when `bDelete` is true.
  void SignalAndDelete(bool bDelete);

  /// Calls `p->Ref()` through the virtual table; `p` must not be null.
  void IntrusivePtrAddRef(CReferenced* p);
  /// Calls `p->Unref()` through the virtual table; `p` must not be null.
  void IntrusivePtrRelease(CReferenced* p);

protected:
  virtual ~CReferenced();

private:
  friend class CWeakPtrCounter;

  // Takes a reference only if the count is above 0. Used by the weak counter
  // so that an object whose count has reached 0 is never brought back.
  bool TryRefWhileAlive() const noexcept;
  // Drops a reference taken by TryRefWhileAlive.
  void DropPin() const;

  mutable std::atomic<int> m_nRefCount;
};

/// Hook for boost::intrusive_ptr and similar smart pointers.
inline void intrusive_ptr_add_ref(CReferenced* p) {
  assert(p && "intrusive_ptr_add_ref: null object");
  p->Ref();
}
/// Hook for boost::intrusive_ptr and similar smart pointers.
inline void intrusive_ptr_release(CReferenced* p) {
  assert(p && "intrusive_ptr_release: null object");
  p->Unref();
}

/// A counted record shared by all weak holders of one object.
///
/// It names the observed object until that object dies; from then on
/// AddRefLock returns null. The counter may outlive its object. AddRefLock and
/// Invalidate are serialised by the counter's own mutex; the observed pointer
/// is atomic as well, so GetObserverdObject may read it on any thread without
/// the lock while the object dies on another.
class ZRN_API CWeakPtrCounter : public CReferenced {
public:
  /// Creates a counter with count 0 that observes `observed`.
  explicit CWeakPtrCounter(CReferenced const* observed);

  /// The observed object as it stands, without taking a reference or the lock.
  /// Null once the object is gone; a non-null result may be dying already.
  CReferenced* GetObserverdObject() ZRN_NO_THREAD_SAFETY_ANALYSIS {
    return m_pObserved.load(std::memory_order_acquire);
  }
  /// The observed object as it stands, without taking a reference or the lock.
  CReferenced const* GetObserverdObject() const ZRN_NO_THREAD_SAFETY_ANALYSIS {
    return m_pObserved.load(std::memory_order_acquire);
  }

  /// A new strong reference to the observed object, or null once the object
  /// is gone or its count has already fallen to 0. The caller owns the
  /// reference that a non-null result carries and drops it with Unref.
  CReferenced* AddRefLock() ZRN_EXCLUDES(Mutex());

  /// Forgets the observed object under the counter's lock. Whoever destroys
  /// the observed object calls this; CWeakPtr's registry does it for you.
  void Invalidate() ZRN_EXCLUDES(Mutex());

protected:
  ~CWeakPtrCounter() override;

private:
  CMutex& Mutex() const noexcept { return m_mutex.Get(); }

  detail::MutexStorage m_mutex;
  // Written only under the lock; read under it by AddRefLock and without it
  // by GetObserverdObject, which is why the getters opt out of the check.
  std::atomic<CReferenced*> m_pObserved ZRN_GUARDED_BY(Mutex());
};

} // namespace zrn

#endif // ZRN_OBJECT_REFERENCED_H
