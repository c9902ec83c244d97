#include <zrn/Object/Entity.h>
#include <zrn/Object/Project.h>

#include "Store/StoreWork.h"

#include <cxxabi.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

namespace zrn {
namespace {

constexpr int kMemoryFlags = EGOBJECT_FLAG_MODIFIED | EGOBJECT_FLAG_SWAPPED | EGOBJECT_FLAG_STORED;
constexpr std::size_t kProgressEvery = 16384;

// The flag bits of `entity` that the store keeps.
int PersistentFlags(IBaseEntity const& entity) {
  int flags = 0;
  for (int bit = 1; bit; bit <<= 1)
    if (!(bit & kMemoryFlags) && entity.HasObjectFlag(static_cast<EGOBJECT_FLAG>(bit)))
      flags |= bit;
  return flags;
}

// True when the ids of `children` increase: the order AddChild gives, which
// loading restores from the ids alone.
bool InIdOrder(std::vector<IBaseEntity*> const& children) {
  for (std::size_t i = 1; i < children.size(); ++i)
    if (children[i - 1]->GetObjectID() >= children[i]->GetObjectID())
      return false;
  return true;
}

std::string ClassName(std::type_info const& type) {
  int status = 0;
  std::unique_ptr<char, void (*)(void*)> name(
      abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), std::free);
  return status == 0 && name ? name.get() : type.name();
}

} // namespace

bool CStoreSave::Run(IBaseProject& project) {
  if (!m_device.IsOpen())
    return Fail(m_device.LastError().empty() ? "the store is not open" : m_device.LastError());
  if (!m_device.InTransaction())
    return Fail(m_device.LastError().empty() ? "the save has no transaction (BeginAccess failed)"
                                             : m_device.LastError());
  if (m_facade.m_progress)
    m_nTotal = CountEntities(project);
  m_bWhole = !m_device.IsSyncedWith(&project);
  if (m_bWhole && !m_device.ClearRows())
    return Fail(m_device.LastError());
  if (!Delete() || !WriteTree(project) || !WriteProject(project) ||
      !m_device.CommitTransaction()) {
    std::string why = m_device.LastError();
    if (m_device.InTransaction())
      m_device.RollbackTransaction();
    return Fail(why);
  }
  AfterCommit(project);
  return true;
}

bool CStoreSave::Delete() {
  std::vector<long long> ids;
  m_device.GetObjectsState().GetDeleteList(ids);
  for (long long id : ids)
    if (!m_device.DeleteRow(id))
      return false;
  m_nRows += ids.size();
  return true;
}

bool CStoreSave::WriteTree(IBaseProject& project) {
  // Pre-order, siblings in child order: for a tree numbered by AddChild that
  // is increasing id order, so the rows append to the end of the table's
  // b-tree. Writing parent by parent scatters the ids over the b-tree, which
  // splits pages in its middle and leaves the file a quarter larger.
  m_stack.assign(1, SPending{&project, 0, 0, false});
  while (!m_stack.empty()) {
    SPending const next = m_stack.back();
    m_stack.pop_back();
    if (!WriteEntity(*next.entity, next.parentId, next.order, next.rewriteOrder))
      return false;
    PushChildren(*next.entity);
  }
  return true;
}

void CStoreSave::PushChildren(IBaseEntity& parent) {
  std::vector<IBaseEntity*> const& children = parent.GetAllChild();
  if (children.empty())
    return;
  long long const parentId = parent.GetObjectID();
  bool const natural = InIdOrder(children);
  auto& ordered = m_device.OrderedParents();
  bool const wasOrdered = !ordered.empty() && ordered.count(parentId);
  // Orders are rewritten when the parent leaves or enters the explicit form,
  // and every time it stays explicit (cheap: only such parents pay).
  bool const rewrite = !natural || wasOrdered;
  if (!natural && !wasOrdered)
    m_becameOrdered.push_back(parentId);
  if (natural && wasOrdered)
    m_becameNatural.push_back(parentId);
  // Pushed last child first, so that the first child is written next.
  for (std::size_t i = children.size(); i-- > 0;)
    if (IBaseEntity* child = children[i])
      m_stack.push_back({child, parentId, natural ? 0 : static_cast<long long>(i) + 1, rewrite});
}

bool CStoreSave::WriteEntity(IBaseEntity& entity, long long parentId, long long order,
                             bool rewriteOrder) {
  if (++m_nVisited % kProgressEvery == 0)
    m_facade.Report("save", m_nVisited, m_nTotal);
  auto const& swaps = m_device.SwapIds();
  auto const& detached = m_facade.m_detachedSwaps;
  bool const full = m_bWhole || entity.HasObjectFlag(EGOBJECT_FLAG_MODIFIED) ||
                    !entity.HasObjectFlag(EGOBJECT_FLAG_STORED) ||
                    (!swaps.empty() && swaps.count(entity.GetObjectID())) ||
                    (!detached.empty() && detached.count(&entity));
  if (full)
    return WriteFull(entity, parentId, order);
  if (!rewriteOrder)
    return true;
  ++m_nRows;
  return m_device.WriteOrder(entity.GetObjectID(), order);
}

bool CStoreSave::WriteFull(IBaseEntity& entity, long long parentId, long long order) {
  SEntityRow row;
  row.id = entity.GetObjectID();
  row.parentId = parentId;
  row.order = order;
  row.type = TypeOf(entity);
  row.flags = PersistentFlags(entity);
  if (row.type < 0)
    return Fail("entity " + std::to_string(row.id) + " is of class " +
                ClassName(typeid(entity)) + ", which is not registered with the store");
  if (!Archive(entity, row.data, row.size))
    return false;
  m_written.push_back(&entity);
  ++m_nRows;
  return m_device.WriteRow(row);
}

bool CStoreSave::Archive(IBaseEntity& entity, char const*& data, unsigned& size) {
  long long const id = entity.GetObjectID();
  if (!entity.HasObjectFlag(EGOBJECT_FLAG_SWAPPED)) {
    std::string error;
    if (!m_writer.Write(*entity.GetBaseEntityImpl(false), error))
      return Fail("the data of entity " + std::to_string(id) + " cannot be archived: " + error);
    data = m_writer.Data();
    size = m_writer.Size();
    return true;
  }
  // Swapped out: the data kept at swap-out, else the row's own data (of
  // this store, or of the one a "save as" left), which must survive.
  auto& detached = m_facade.m_detachedSwaps;
  if (auto found = detached.find(&entity); found != detached.end()) {
    data = found->second.data();
    size = static_cast<unsigned>(found->second.size());
    return true;
  }
  bool const kept = m_device.SwapIds().count(id) && m_device.ReadSwapData(id, m_swapBytes);
  if (!kept && !m_device.ReadEntityData(id, m_swapBytes))
    return Fail("the data of entity " + std::to_string(id) +
                " is swapped out and not in this store: fetch it (GetBaseEntityImpl(true)) "
                "before saving the tree to another store");
  data = m_swapBytes.data();
  size = static_cast<unsigned>(m_swapBytes.size());
  return true;
}

int CStoreSave::TypeOf(IBaseEntity& entity) {
  // Trees hold few classes, mostly in runs: one remembered class saves most
  // lookups.
  std::type_info const& type = typeid(entity);
  if (m_lastType != &type) {
    m_lastType = &type;
    m_nLastTypeId = m_facade.m_types.TypeOf(entity);
  }
  return m_nLastTypeId;
}

bool CStoreSave::WriteProject(IBaseProject& project) {
  std::string error;
  if (!m_writer.WriteProject(project, error))
    return Fail("the project's state cannot be archived: " + error);
  return m_device.WriteProjectState(project.GetObjectID(), m_writer.Data(), m_writer.Size());
}

void CStoreSave::AfterCommit(IBaseProject& project) {
  auto& swaps = m_device.SwapIds();
  auto& detached = m_facade.m_detachedSwaps;
  for (IBaseEntity* entity : m_written) {
    entity->SetObjectFlag(true, EGOBJECT_FLAG_STORED);
    entity->SetObjectFlag(false, EGOBJECT_FLAG_MODIFIED);
    if (!swaps.empty())
      swaps.erase(entity->GetObjectID());
    if (!detached.empty())
      detached.erase(entity);
  }
  std::vector<long long> deleted;
  m_device.GetObjectsState().GetDeleteList(deleted);
  for (long long id : deleted)
    swaps.erase(id);
  m_device.GetObjectsState().ClearAllList();
  m_device.SetSynced(&project);
  auto& ordered = m_device.OrderedParents();
  ordered.insert(m_becameOrdered.begin(), m_becameOrdered.end());
  for (long long id : m_becameNatural)
    ordered.erase(id);
}

std::size_t CStoreSave::CountEntities(IBaseProject& project) const {
  std::size_t count = 0;
  std::vector<IBaseEntity*> stack(1, &project);
  while (!stack.empty()) {
    IBaseEntity* entity = stack.back();
    stack.pop_back();
    ++count;
    for (IBaseEntity* child : entity->GetAllChild())
      if (child)
        stack.push_back(child);
  }
  return count;
}

bool CStoreSave::Fail(std::string text) {
  // The device's own failure is already recorded; repeat it only when the
  // text is new.
  if (text != m_device.LastError())
    m_device.SetError(std::move(text));
  return false;
}

} // namespace zrn
