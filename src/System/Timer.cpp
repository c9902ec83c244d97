#include <zrn/System/Timer.h>

#include "Platform/Platform.h"

#include "System/AnnotatedMutex.h"
#include <map>

#include <mutex>

namespace zrn {
namespace {

// The timer table. Recursive, and held while a callback runs, so that a
// callback may stop or destroy timers while no other thread can destroy the
// timer being called.
struct TimerTable {
  detail::CAnnotatedMutex<std::recursive_mutex> mutex;
  std::map<std::uintptr_t, CTimer*> timers ZRN_GUARDED_BY(mutex);
};

TimerTable& Table() {
  static TimerTable* table = new TimerTable; // outlives timers destroyed at exit
  return *table;
}

// Drops the entry of a timer whose platform timer is already gone (its
// thread ended), if the entry is still this timer's.
void ForgetEntry(std::uintptr_t id, CTimer const* timer) {
  TimerTable& table = Table();
  detail::CScopedLock lock(table.mutex);
  const auto found = table.timers.find(id);
  if (found != table.timers.end() && found->second == timer)
    table.timers.erase(found);
}

} // namespace

std::size_t PumpThreadTimers(unsigned long maxWaitMs) {
  return platform::PumpThreadTimers(maxWaitMs);
}

CTimer::CTimer(int intervalMs, Callback callback, void* userData)
    : m_pCallback(callback), m_pUserData(userData), m_nElapse(intervalMs) {}

CTimer& CTimer::operator=(CTimer const& other) {
  if (this != &other) {
    Stop();
    m_pCallback = other.m_pCallback;
    m_pUserData = other.m_pUserData;
    m_nTimerID = other.m_nTimerID;
    m_nElapse = other.m_nElapse;
  }
  return *this;
}

CTimer::~CTimer() {
  Stop();
  if (m_nTimerID != 0)
    ForgetEntry(m_nTimerID, this);
}

void CTimer::Start() {
  Stop();
  if (m_nTimerID != 0)
    ForgetEntry(m_nTimerID, this);
  TimerTable& table = Table();
  detail::CScopedLock lock(table.mutex);
  const unsigned interval = m_nElapse > 0 ? static_cast<unsigned>(m_nElapse) : 0;
  m_nTimerID = platform::SetThreadTimer(interval, &CTimer::TimerProc);
  if (m_nTimerID != 0)
    table.timers.emplace(m_nTimerID, this);
}

void CTimer::Stop() {
  if (m_nTimerID == 0)
    return;
  if (!platform::KillThreadTimer(m_nTimerID))
    return;
  TimerTable& table = Table();
  detail::CScopedLock lock(table.mutex);
  table.timers.erase(m_nTimerID);
  m_nTimerID = 0;
}

void CTimer::TimerProc(void*, unsigned int, std::uintptr_t id, unsigned long time) {
  TimerTable& table = Table();
  detail::CScopedLock lock(table.mutex);
  const auto found = table.timers.find(id);
  if (found == table.timers.end())
    return;
  CTimer const& timer = *found->second;
  if (timer.m_pCallback)
    timer.m_pCallback(timer.m_pUserData, time);
}

} // namespace zrn
