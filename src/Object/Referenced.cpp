#include <zrn/Object/Referenced.h>

#include <zrn/System/Mutex.h>

#include "Object/WeakCounterRegistry.h"

#include <cassert>

namespace zrn {

void CReferenced::Ref() { m_nRefCount.fetch_add(1, std::memory_order_relaxed); }

void CReferenced::Unref() {
  // Release so that this owner's writes happen before the destruction that
  // another thread's final Unref may run; acquire on the final one.
  if (m_nRefCount.fetch_sub(1, std::memory_order_acq_rel) == 1)
    delete this;
}

void CReferenced::UnrefNoDelete() const { m_nRefCount.fetch_sub(1, std::memory_order_acq_rel); }

void CReferenced::SignalAndDelete(bool bDelete) {
  if (bDelete)
    delete this;
}

void CReferenced::IntrusivePtrAddRef(CReferenced* p) {
  assert(p && "IntrusivePtrAddRef: null object");
  p->Ref();
}

void CReferenced::IntrusivePtrRelease(CReferenced* p) {
  assert(p && "IntrusivePtrRelease: null object");
  p->Unref();
}

CReferenced::~CReferenced() { detail::ForgetWeakCounter(this); }

bool CReferenced::TryRefWhileAlive() const noexcept {
  int count = m_nRefCount.load(std::memory_order_relaxed);
  do {
    if (count <= 0)
      return false;
  } while (!m_nRefCount.compare_exchange_weak(count, count + 1, std::memory_order_acquire,
                                              std::memory_order_relaxed));
  return true;
}

void CReferenced::DropPin() const {
  if (m_nRefCount.fetch_sub(1, std::memory_order_acq_rel) == 1)
    delete this;
}

CWeakPtrCounter::CWeakPtrCounter(CReferenced const* observed)
    : m_pObserved(const_cast<CReferenced*>(observed)) {}

CWeakPtrCounter::~CWeakPtrCounter() = default;

CReferenced* CWeakPtrCounter::AddRefLock() {
  CLock lock(Mutex());
  // Relaxed: Invalidate writes under the same lock.
  CReferenced* const object = m_pObserved.load(std::memory_order_relaxed);
  if (!object)
    return nullptr;
  // Pin the object first: reading the count after a plain Ref could mistake a
  // concurrent Unref by another owner for a dying object and leak it. The pin
  // only succeeds while the count is above 0, so an object already on its way
  // to destruction is never revived.
  if (!object->TryRefWhileAlive())
    return nullptr;
  object->Ref(); // the caller's reference, through the virtual table
  object->DropPin();
  return object;
}

void CWeakPtrCounter::Invalidate() {
  CLock lock(Mutex());
  m_pObserved.store(nullptr, std::memory_order_release);
}

} // namespace zrn
