// Room for a CMutex inside a public class whose header should not pull in the
// mutex header (and with it <mutex> and <thread>) for one private member.
//
// Not part of the interface: hosts never name it. It has exactly the size and
// alignment of CMutex (checked where CMutex is defined), so a class that
// swaps a CMutex member for it keeps its layout.
#ifndef ZRN_SYSTEM_DETAIL_MUTEXSTORAGE_H
#define ZRN_SYSTEM_DETAIL_MUTEXSTORAGE_H

#include <zrn/ThreadSafety.h>

namespace zrn {

class ZRN_CAPABILITY("mutex") CMutex;

namespace detail {

/// Constructs a CMutex in place and destroys it with itself.
class alignas(8) MutexStorage {
public:
  MutexStorage();
  ~MutexStorage();
  MutexStorage(MutexStorage const&) = delete;
  MutexStorage& operator=(MutexStorage const&) = delete;

  /// The mutex; lockable from const members, like a mutable member.
  CMutex& Get() const noexcept;

private:
  mutable unsigned char m_bytes[56];
};

} // namespace detail
} // namespace zrn

#endif // ZRN_SYSTEM_DETAIL_MUTEXSTORAGE_H
