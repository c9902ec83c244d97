#include "Regen/RemovalQueue.h"

#include <algorithm>

namespace zrn::detail {

void RemovalQueue::Push(unsigned long long id, std::shared_ptr<IRegenableObject> object,
                        std::vector<unsigned long long> const& dependents) {
  std::size_t const first = m_vecDependents.size();
  m_vecDependents.insert(m_vecDependents.end(), dependents.begin(), dependents.end());
  auto const begin = m_vecDependents.begin() + static_cast<std::ptrdiff_t>(first);
  std::sort(begin, m_vecDependents.end());
  m_vecDependents.erase(std::unique(begin, m_vecDependents.end()), m_vecDependents.end());
  m_vecRemovals.push_back(Removal{id, std::move(object), first, m_vecDependents.size()});
}

bool RemovalQueue::Pop(Removal& next) {
  if (m_nHead == m_vecRemovals.size())
    return false;
  next = std::move(m_vecRemovals[m_nHead++]);
  return true;
}

void RemovalQueue::Clear() {
  m_vecRemovals.clear();
  m_vecDependents.clear();
  m_nHead = 0;
  m_bRunning = false;
}

} // namespace zrn::detail
