#include "Progress.h"

#include <cassert>
#include <chrono>
#include <cstdio>

std::atomic<CPhaseClock*> CPhaseClock::s_current{nullptr};

CPhaseClock::CPhaseClock(std::wstring name) : m_name(std::move(name)) {
  CPhaseClock* expected = nullptr;
  [[maybe_unused]] bool const alone = s_current.compare_exchange_strong(expected, this);
  assert(alone && "one phase is watched at a time");
  m_watcher = std::thread([this] { Watch(); });
}

CPhaseClock::~CPhaseClock() {
  s_current = nullptr;
  {
    std::lock_guard lock(m_mutex);
    m_stop = true;
  }
  m_wake.notify_one();
  m_watcher.join();
}

void CPhaseClock::Report(std::size_t done, std::size_t total) {
  if (CPhaseClock* clock = s_current.load(std::memory_order_relaxed)) {
    clock->m_done.store(done, std::memory_order_relaxed);
    clock->m_total.store(total, std::memory_order_relaxed);
  }
}

void CPhaseClock::Watch() {
  using namespace std::chrono_literals;
  std::unique_lock lock(m_mutex);
  for (int seconds = 1;; ++seconds) {
    if (m_wake.wait_for(lock, 1s, [this] { return m_stop; }))
      return;
    std::size_t const done = m_done.load(std::memory_order_relaxed);
    std::size_t const total = m_total.load(std::memory_order_relaxed);
    // Standard error takes narrow text here: the wide stream is standard
    // output's, and one stream may not be used both ways.
    std::string const name(m_name.begin(), m_name.end());
    if (total > 0)
      std::fprintf(stderr, "  ... %s: %d s, %zu of %zu\n", name.c_str(), seconds, done, total);
    else
      std::fprintf(stderr, "  ... %s: %d s\n", name.c_str(), seconds);
  }
}
