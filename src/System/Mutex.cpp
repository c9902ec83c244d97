#include <zrn/System/Mutex.h>

namespace zrn {

CMutex::CMutex() = default;

CMutex::~CMutex() = default;

void CMutex::Lock() {
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

void CMutex::Unlock() {
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
