// Process-wide single instances.
//
// A class T becomes a singleton by deriving from CSingleton<T>; its one
// instance is a function-local static, created by the first GetInstance or
// GetInstancePtr and destroyed at process exit. Creation is thread-safe.
#ifndef ZRN_PROFILE_GLOG_SINGLETON_H
#define ZRN_PROFILE_GLOG_SINGLETON_H

#include <zrn/Export.h>

namespace zrn {

/// A base that forbids copying and assignment.
class ZRN_API CNonCopyable {
protected:
  CNonCopyable() = default;
  ~CNonCopyable() = default;

public:
  CNonCopyable(CNonCopyable const&) = delete;
  CNonCopyable& operator=(CNonCopyable const&) = delete;
};

/// The single instance of T, which derives from CSingleton<T>.
///
/// The library instantiates it for its own singletons, so that the library
/// and every host module share one instance of each.
template <class T> class ZRN_API CSingleton : public CNonCopyable {
public:
  /// The one instance, constructed on the first call.
  static T& GetInstance();
  /// The address of the one instance, constructed on the first call.
  static T* GetInstancePtr();

protected:
  CSingleton() = default;
  virtual ~CSingleton() = default;
};

// Defined out of the class so that an explicit instantiation declaration
// (extern template) keeps them out of line: the instance then lives in the
// module that instantiates the template, not in every module that calls it.
template <class T> T& CSingleton<T>::GetInstance() {
  static T s_instance;
  return s_instance;
}

template <class T> T* CSingleton<T>::GetInstancePtr() { return &GetInstance(); }

} // namespace zrn

#endif // ZRN_PROFILE_GLOG_SINGLETON_H
