#include <zrn/System/Mutex.h>
#include <zrn/System/detail/MutexStorage.h>

#include <cassert>
#include <new>

namespace zrn {

static_assert(sizeof(detail::MutexStorage) == sizeof(CMutex) &&
                  alignof(detail::MutexStorage) == alignof(CMutex),
              "MutexStorage must match CMutex so that classes holding one keep their layout");

detail::MutexStorage::MutexStorage() { new (m_bytes) CMutex; }

detail::MutexStorage::~MutexStorage() { Get().~CMutex(); }

CMutex& detail::MutexStorage::Get() const noexcept {
  return *std::launder(reinterpret_cast<CMutex*>(m_bytes));
}

CMutex::CMutex() = default;

CMutex::~CMutex() {
  assert(m_owner.load(std::memory_order_relaxed) == std::thread::id() &&
         "CMutex destroyed while a thread owns it");
}

// The bodies below implement the capability on a lock the analysis does not
// know (std::mutex) and count re-entries it cannot model.
void CMutex::Lock() ZRN_NO_THREAD_SAFETY_ANALYSIS {
  const std::thread::id self = std::this_thread::get_id();
  // Only this thread ever stores its own id, so a relaxed read that sees it
  // proves ownership; any other value means we do not own the mutex.
  if (m_owner.load(std::memory_order_relaxed) == self) {
    ++m_nDepth;
    return;
  }
  m_mutex.lock();
  m_owner.store(self, std::memory_order_relaxed);
  m_nDepth = 1;
}

void CMutex::Unlock() ZRN_NO_THREAD_SAFETY_ANALYSIS {
  if (m_owner.load(std::memory_order_relaxed) != std::this_thread::get_id())
    return;
  if (--m_nDepth != 0)
    return;
  m_owner.store(std::thread::id(), std::memory_order_relaxed);
  m_mutex.unlock();
}

CLock::CLock(CMutex& mutex) : m_mutex(mutex) { m_mutex.Lock(); }

CLock::~CLock() { m_mutex.Unlock(); }

} // namespace zrn
