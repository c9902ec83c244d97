// An intrusive smart pointer for CReferenced objects.
//
//   class Mesh : public zrn::CReferenced { ... };
//   zrn::CRefPtr<Mesh> mesh = zrn::MakeRef<Mesh>();  // one reference
//   zrn::CRefPtr<Mesh> shared = mesh;                // two
//   mesh.reset();                                    // one; the mesh lives on
//   // The last CRefPtr to go deletes the mesh.
#ifndef ZRN_OBJECT_REFPTR_H
#define ZRN_OBJECT_REFPTR_H

#include <zrn/Object/Referenced.h>

#include <cassert>
#include <cstddef>
#include <functional>
#include <utility>

namespace zrn {

/// Holds one reference on a CReferenced object (or nothing).
///
/// Copying takes another reference; destruction drops it. Like a raw pointer,
/// one CRefPtr instance must not be written by one thread while another uses
/// it; distinct CRefPtrs to one object may be used on any threads.
template <class T> class CRefPtr {
public:
  CRefPtr() noexcept = default;
  CRefPtr(std::nullptr_t) noexcept {}
  /// Takes a new reference on `p` (which may be null).
  explicit CRefPtr(T* p) noexcept : m_p(p) { AddRef(); }
  CRefPtr(CRefPtr const& other) noexcept : m_p(other.m_p) { AddRef(); }
  CRefPtr(CRefPtr&& other) noexcept : m_p(std::exchange(other.m_p, nullptr)) {}
  template <class U> CRefPtr(CRefPtr<U> const& other) noexcept : m_p(other.get()) { AddRef(); }
  template <class U> CRefPtr(CRefPtr<U>&& other) noexcept : m_p(other.release()) {}
  ~CRefPtr() { Drop(); }

  CRefPtr& operator=(CRefPtr other) noexcept {
    std::swap(m_p, other.m_p);
    return *this;
  }

  /// Wraps `p` without taking a reference: the result owns one that `p`
  /// already carries (such as the result of CWeakPtrCounter::AddRefLock).
  static CRefPtr Adopt(T* p) noexcept {
    CRefPtr result;
    result.m_p = p;
    return result;
  }

  T* get() const noexcept { return m_p; }
  /// The object; the pointer must not be empty.
  T& operator*() const noexcept {
    assert(m_p && "CRefPtr: dereferencing an empty pointer");
    return *m_p;
  }
  /// The object's members; the pointer must not be empty.
  T* operator->() const noexcept {
    assert(m_p && "CRefPtr: member access through an empty pointer");
    return m_p;
  }
  explicit operator bool() const noexcept { return m_p != nullptr; }

  /// Drops the held reference and takes one on `p`.
  void reset(T* p = nullptr) noexcept { CRefPtr(p).swap(*this); }
  /// Gives up the held reference without dropping it; the caller owns it.
  [[nodiscard]] T* release() noexcept { return std::exchange(m_p, nullptr); }
  void swap(CRefPtr& other) noexcept { std::swap(m_p, other.m_p); }

private:
  void AddRef() noexcept {
    if (m_p)
      m_p->Ref();
  }
  void Drop() noexcept {
    if (m_p)
      m_p->Unref();
  }

  T* m_p = nullptr;
};

template <class T, class U> bool operator==(CRefPtr<T> const& a, CRefPtr<U> const& b) noexcept {
  return a.get() == b.get();
}
template <class T> bool operator==(CRefPtr<T> const& a, std::nullptr_t) noexcept {
  return a.get() == nullptr;
}
template <class T, class U> bool operator<(CRefPtr<T> const& a, CRefPtr<U> const& b) noexcept {
  return std::less<>()(a.get(), b.get());
}

/// Creates a T with `new` and returns it holding its first reference.
template <class T, class... Args> CRefPtr<T> MakeRef(Args&&... args) {
  return CRefPtr<T>(new T(std::forward<Args>(args)...));
}

} // namespace zrn

template <class T> struct std::hash<zrn::CRefPtr<T>> {
  std::size_t operator()(zrn::CRefPtr<T> const& p) const noexcept {
    return std::hash<T*>()(p.get());
  }
};

#endif // ZRN_OBJECT_REFPTR_H
