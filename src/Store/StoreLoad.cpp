#include <zrn/Object/Entity.h>
#include <zrn/Object/Project.h>

#include "Store/StoreWork.h"

#include <algorithm>

namespace zrn {
namespace {

constexpr std::size_t kProgressEvery = 16384;
constexpr std::size_t kNone = static_cast<std::size_t>(-1);

// The flags a loaded entity starts with: stored, swapped out unless its data
// was read, and the persistent bits of its row.
EGOBJECT_FLAG LoadedFlags(int stored, bool eager) {
  int memory = EGOBJECT_FLAG_MODIFIED | EGOBJECT_FLAG_SWAPPED | EGOBJECT_FLAG_STORED;
  int flags = (stored & ~memory) | EGOBJECT_FLAG_STORED | (eager ? 0 : EGOBJECT_FLAG_SWAPPED);
  return static_cast<EGOBJECT_FLAG>(flags);
}

} // namespace

CStoreLoad::~CStoreLoad() {
  // Entities are free (not yet attached) until the load succeeds.
  for (Row const& row : m_rows)
    delete row.entity;
}

IBaseProject* CStoreLoad::Run(long long projectId) {
  if (!m_device.IsOpen()) {
    Fail("the store is not open");
    return nullptr;
  }
  if (!ReadRows() || !Link(projectId) || !CheckConnected())
    return nullptr;
  auto* project = dynamic_cast<IBaseProject*>(m_rows[m_nRoot].entity);
  if (!project) {
    Fail("the root entity " + std::to_string(projectId) + " is not a project");
    return nullptr;
  }
  SortExplicitOrders();
  RestoreCounter(*project);
  // The device goes in first, so that its `loading` option keeps AddChild
  // from numbering anything.
  project->SetProjectDBDevice(&m_device);
  bool& loading = m_device.GetDeviceContext().loading;
  bool const wasLoading = loading;
  loading = true;
  Attach();
  loading = wasLoading;
  m_rows.clear();
  m_device.SetSynced(project);
  return project;
}

bool CStoreLoad::ReadRows() {
  bool const eager = m_facade.m_bEagerLoad;
  if (m_facade.m_progress)
    m_nTotal = static_cast<std::size_t>(std::max(m_device.RowCount(), 0LL));
  bool const read = m_device.ReadRows(eager, [this](SEntityRow const& row) { return AddRow(row); });
  if (!m_error.empty())
    return false;
  return read || Fail(m_device.LastError());
}

bool CStoreLoad::AddRow(SEntityRow const& row) {
  if (!m_rows.empty() && row.id <= m_rows.back().id)
    return Fail("the entity rows are not in increasing id order");
  if (row.id < 1)
    return Fail("entity id " + std::to_string(row.id) + " is not valid");
  IBaseEntity* entity = m_facade.m_types.Create(row.type);
  if (!entity)
    return Fail("entity " + std::to_string(row.id) + " has type " + std::to_string(row.type) +
                ", which no registered class has");
  m_rows.push_back({row.id, row.parentId, row.order, entity});
  entity->SetObjectID(row.id);
  // Flags are set while the entity is free, so that no call walks a tree.
  entity->SetObjectFlag(false, EGOBJECT_FLAG_MODIFIED);
  entity->SetObjectFlag(true, LoadedFlags(row.flags, m_facade.m_bEagerLoad));
  if (m_facade.m_bEagerLoad) {
    std::string error;
    IBaseEntityImpl* impl = entity->GetBaseEntityImpl(false);
    if (impl && !detail::ReadBlob(*impl, std::string_view(row.data, row.size), error))
      return Fail("the data of entity " + std::to_string(row.id) + " cannot be read: " + error);
  }
  if (m_rows.size() % kProgressEvery == 0)
    m_facade.Report("load", m_rows.size(), m_nTotal);
  return true;
}

std::size_t CStoreLoad::Find(long long id) const {
  auto found = std::lower_bound(m_rows.begin(), m_rows.end(), id,
                                [](Row const& row, long long key) { return row.id < key; });
  return found != m_rows.end() && found->id == id ? static_cast<std::size_t>(found - m_rows.begin())
                                                  : kNone;
}

bool CStoreLoad::Link(long long projectId) {
  m_nRoot = Find(projectId);
  if (m_nRoot == kNone)
    return Fail("the store has no entity " + std::to_string(projectId));
  if (m_rows[m_nRoot].parentId != 0)
    return Fail("entity " + std::to_string(projectId) + " is not a root");
  // Children counted, then placed: rows come in id order, so each parent's
  // children do too.
  std::vector<std::size_t> parentOf(m_rows.size(), kNone);
  m_first.assign(m_rows.size() + 1, 0);
  for (std::size_t i = 0; i < m_rows.size(); ++i) {
    if (i == m_nRoot)
      continue;
    // Siblings mostly come one after another: reuse the previous row's
    // parent before searching.
    bool const sameParent = i > 0 && parentOf[i - 1] != kNone &&
                            m_rows[i - 1].parentId == m_rows[i].parentId;
    std::size_t parent = sameParent ? parentOf[i - 1] : Find(m_rows[i].parentId);
    if (parent == kNone || parent == i)
      return Fail("the parent " + std::to_string(m_rows[i].parentId) + " of entity " +
                  std::to_string(m_rows[i].id) + " is not in the store");
    parentOf[i] = parent;
    ++m_first[parent + 1];
  }
  for (std::size_t i = 0; i < m_rows.size(); ++i)
    m_first[i + 1] += m_first[i];
  m_children.assign(m_rows.size() ? m_rows.size() - 1 : 0, 0);
  std::vector<std::size_t> next(m_first.begin(), m_first.end() - 1);
  for (std::size_t i = 0; i < m_rows.size(); ++i)
    if (parentOf[i] != kNone)
      m_children[next[parentOf[i]]++] = i;
  return true;
}

bool CStoreLoad::CheckConnected() {
  // Rows whose parent ids form a cycle are never reached from the root.
  m_breadthFirst.clear();
  m_breadthFirst.reserve(m_rows.size());
  m_breadthFirst.push_back(m_nRoot);
  for (std::size_t at = 0; at < m_breadthFirst.size(); ++at) {
    std::size_t row = m_breadthFirst[at];
    for (std::size_t c = m_first[row]; c < m_first[row + 1]; ++c)
      m_breadthFirst.push_back(m_children[c]);
  }
  if (m_breadthFirst.size() == m_rows.size())
    return true;
  return Fail(std::to_string(m_rows.size() - m_breadthFirst.size()) +
              " entities of the store are not connected to the root (their parent ids form a "
              "cycle or lead to another root)");
}

void CStoreLoad::SortExplicitOrders() {
  auto& ordered = m_device.OrderedParents();
  ordered.clear();
  for (std::size_t parent = 0; parent < m_rows.size(); ++parent) {
    auto begin = m_children.begin() + static_cast<std::ptrdiff_t>(m_first[parent]);
    auto end = m_children.begin() + static_cast<std::ptrdiff_t>(m_first[parent + 1]);
    if (std::all_of(begin, end, [&](std::size_t c) { return m_rows[c].order == 0; }))
      continue;
    std::stable_sort(begin, end,
                     [&](std::size_t a, std::size_t b) { return m_rows[a].order < m_rows[b].order; });
    ordered.insert(m_rows[parent].id);
  }
}

void CStoreLoad::Attach() {
  // Deepest parents first: a parent is still free when its children join it,
  // so AddChild finds no project above it and walks nothing.
  for (auto at = m_breadthFirst.rbegin(); at != m_breadthFirst.rend(); ++at) {
    IBaseEntity* parent = m_rows[*at].entity;
    for (std::size_t c = m_first[*at]; c < m_first[*at + 1]; ++c)
      parent->AddChild(m_rows[m_children[c]].entity);
  }
}

void CStoreLoad::RestoreCounter(IBaseProject& project) {
  // The counter never goes below the largest id in use, so that new entities
  // cannot take an id the store holds.
  std::string bytes;
  long long counter = m_device.ReadProjectState(project.GetObjectID(), bytes)
                          ? detail::CounterOf(bytes)
                          : 1;
  detail::CBlobWriter writer;
  writer.WriteCounter(std::max(counter, m_rows.back().id));
  detail::ReadProjectBlob(project, std::string_view(writer.Data(), writer.Size()));
}

bool CStoreLoad::Fail(std::string text) {
  m_error = text;
  return m_device.SetError(std::move(text));
}

} // namespace zrn
