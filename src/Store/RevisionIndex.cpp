#include "Store/RevisionIndex.h"

#include <algorithm>
#include <cassert>

namespace zrn::detail {

namespace {

// The overlay is folded into the array once it holds this many entries and
// at least an eighth of the array, so that folding stays linear overall.
constexpr std::size_t kFoldAt = 4096;

bool ById(std::pair<long long, long long> const& entry, long long id) { return entry.first < id; }

} // namespace

long long CRevisionIndex::Find(long long id) const {
  if (auto over = m_state.overlay.find(id); over != m_state.overlay.end())
    return over->second;
  auto const& loaded = m_state.loaded;
  auto at = std::lower_bound(loaded.begin(), loaded.end(), id, ById);
  return at != loaded.end() && at->first == id ? at->second : kNone;
}

void CRevisionIndex::Load(long long id, long long rev) {
  assert(rev != kNone && "a loaded row has a revision");
  auto& loaded = m_state.loaded;
  if (m_state.overlay.empty() && (loaded.empty() || loaded.back().first < id))
    loaded.emplace_back(id, rev);
  else
    Set(id, rev);
}

void CRevisionIndex::Remember(long long id, long long rev) {
  assert(rev != kNone && "a written row has a revision");
  m_undo.push_back({id, Find(id)});
  Set(id, rev);
}

void CRevisionIndex::Forget(long long id) {
  long long const rev = Find(id);
  if (rev == kNone)
    return;
  m_undo.push_back({id, rev});
  Set(id, kNone);
}

void CRevisionIndex::ForgetAll() {
  if (!m_beforeClear) {
    m_beforeClear = std::make_unique<State>(std::move(m_state));
    m_undoAtClear = m_undo.size();
  }
  m_state = State();
}

void CRevisionIndex::Commit() {
  m_undo.clear();
  m_beforeClear.reset();
  auto const& state = m_state;
  if (state.overlay.size() >= kFoldAt && state.overlay.size() >= state.loaded.size() / 8)
    Fold();
}

void CRevisionIndex::Rollback() {
  if (m_beforeClear) {
    m_state = std::move(*m_beforeClear);
    m_undo.resize(m_undoAtClear);
  }
  for (auto undo = m_undo.rbegin(); undo != m_undo.rend(); ++undo)
    Set(undo->id, undo->rev);
  m_undo.clear();
  m_beforeClear.reset();
}

void CRevisionIndex::Set(long long id, long long rev) { m_state.overlay[id] = rev; }

void CRevisionIndex::Fold() {
  std::vector<Entry> changed(m_state.overlay.begin(), m_state.overlay.end());
  std::sort(changed.begin(), changed.end());
  std::vector<Entry> merged;
  merged.reserve(m_state.loaded.size() + changed.size());
  auto next = changed.begin();
  for (Entry const& entry : m_state.loaded) {
    for (; next != changed.end() && next->first < entry.first; ++next)
      if (next->second != kNone)
        merged.push_back(*next);
    if (next != changed.end() && next->first == entry.first) {
      if (next->second != kNone)
        merged.push_back(*next);
      ++next;
    } else {
      merged.push_back(entry);
    }
  }
  for (; next != changed.end(); ++next)
    if (next->second != kNone)
      merged.push_back(*next);
  m_state.loaded = std::move(merged);
  m_state.overlay.clear();
}

} // namespace zrn::detail
