// Weak pointers to CReferenced objects.
//
// Every CReferenced object can be observed: the first CWeakPtr made for an
// object creates its CWeakPtrCounter, later ones share it, and the object's
// destruction clears it. The association is kept in a process-wide table so
// that objects pay nothing until someone observes them.
//
//   zrn::CRefPtr<Mesh> mesh = zrn::MakeRef<Mesh>();
//   zrn::CWeakPtr<Mesh> watch(mesh);
//   if (zrn::CRefPtr<Mesh> alive = watch.Lock())
//     alive->Draw();      // kept alive until `alive` goes
//   mesh.reset();         // the mesh dies here
//   watch.Lock();         // empty from now on; watch.Expired() is true
#ifndef ZRN_OBJECT_WEAKPTR_H
#define ZRN_OBJECT_WEAKPTR_H

#include <zrn/Object/RefPtr.h>

namespace zrn {

/// The one weak counter of `object`, created on the first request.
///
/// `object` must be alive for the whole call (the caller holds a reference to
/// it or owns it). When the object is destroyed, its counter is invalidated and
/// dropped from the table. Thread-safe.
ZRN_API CRefPtr<CWeakPtrCounter> GetWeakPtrCounter(CReferenced const* object);

/// Observes a T without keeping it alive.
///
/// Lock hands out a strong reference while the object lives and an empty
/// pointer afterwards. Like std::weak_ptr, one instance must not be written by
/// one thread while another uses it; copies may be used on any threads.
template <class T> class CWeakPtr {
public:
  CWeakPtr() noexcept = default;
  /// Observes `object`, which must be alive (or null).
  explicit CWeakPtr(T* object)
      : m_counter(object ? GetWeakPtrCounter(object) : nullptr), m_pObject(object) {}
  /// Observes the object that `object` holds.
  CWeakPtr(CRefPtr<T> const& object) : CWeakPtr(object.get()) {}

  /// A strong reference to the object, or empty once it has died.
  CRefPtr<T> Lock() const {
    if (!m_counter || !m_counter->AddRefLock())
      return CRefPtr<T>();
    return CRefPtr<T>::Adopt(m_pObject);
  }

  /// True once the object is known to be gone. False is only a hint: the
  /// object may be dying on another thread, and Lock may still return empty.
  /// Safe to call while another thread destroys the object.
  bool Expired() const { return !m_counter || m_counter->GetObserverdObject() == nullptr; }

  /// Stops observing.
  void Reset() noexcept {
    m_counter = nullptr;
    m_pObject = nullptr;
  }

private:
  CRefPtr<CWeakPtrCounter> m_counter;
  T* m_pObject = nullptr;
};

} // namespace zrn

#endif // ZRN_OBJECT_WEAKPTR_H
