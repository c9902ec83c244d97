// A process-wide, replaceable callback with a built-in default.
#ifndef ZRN_SRC_PLATFORM_HANDLERSLOT_H
#define ZRN_SRC_PLATFORM_HANDLERSLOT_H

#include <atomic>
#include <memory>
#include <mutex>
#include <utility>

namespace zrn::platform {

/// Holds a host-installed std::function. Callers test Installed() first so
/// that the default path costs one atomic load; Get() hands out a shared copy
/// so that a handler replaced while it runs stays alive until it returns.
template <class Function> class HandlerSlot {
public:
  bool Installed() const { return m_bInstalled.load(std::memory_order_acquire); }

  std::shared_ptr<const Function> Get() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_pHandler;
  }

  /// Installs `handler` (empty restores the default); returns the previous.
  Function Exchange(Function handler) {
    std::shared_ptr<const Function> next;
    if (handler)
      next = std::make_shared<const Function>(std::move(handler));
    std::shared_ptr<const Function> previous;
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      previous = std::exchange(m_pHandler, std::move(next));
      m_bInstalled.store(m_pHandler != nullptr, std::memory_order_release);
    }
    return previous ? *previous : Function();
  }

private:
  mutable std::mutex m_mutex;
  std::shared_ptr<const Function> m_pHandler;
  std::atomic<bool> m_bInstalled{false};
};

} // namespace zrn::platform

#endif
