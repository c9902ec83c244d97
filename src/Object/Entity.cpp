#include <zrn/Object/Entity.h>

#include <zrn/IO/DBDevice.h>
#include <zrn/IO/DataIOFacade.h>
#include <zrn/IO/DbArchive.h>
#include <zrn/Object/Project.h>

#include <algorithm>

namespace zrn {

namespace {

// Appends `entity`'s id to its project device's deleted-objects list unless
// the device suppresses it. `project` is the project of `entity`'s tree, or null.
void RecordDeletion(IBaseEntity* entity, IBaseProject* project) {
  GDBDevice* const device = project ? project->GetProjectDBDevice() : nullptr;
  if (device && !device->GetDeviceContext().suppressDeleteLog)
    device->GetObjectsState().RegisterDeleteObject(entity->GetObjectID());
}

bool NeedsRecording(IBaseEntity* entity) {
  return GetIOFacade() && entity && entity->HasObjectFlag(EGOBJECT_FLAG_STORED);
}

// One running teardown of subtrees. Every pending node's parent is the anchor,
// which stays alive while the loop runs, so that walks to the root from a
// pending node (recording, or a host destructor asking for its project) see
// the tree as it was.
struct Teardown {
  explicit Teardown(IBaseEntity* anchorNode) : anchor(anchorNode) {}

  IBaseEntity* anchor;
  // The node being deleted right now: its destructor hands its children
  // here instead of starting a loop of its own.
  IBaseEntity* current = nullptr;
  // Top is deleted next, so children are pushed in reverse.
  std::vector<IBaseEntity*> pending;
  // Every pending node is under the anchor, so the project is looked up once
  // per teardown, and only when something needs recording.
  IBaseProject* project = nullptr;
  bool projectKnown = false;

  IBaseProject* Project() {
    if (!projectKnown) {
      project = anchor->GetProject();
      projectKnown = true;
    }
    return project;
  }
};

thread_local Teardown* t_pTeardown = nullptr;

// Restores the enclosing teardown however the loop ends.
class TeardownScope {
public:
  explicit TeardownScope(Teardown& teardown) : m_pOuter(t_pTeardown) { t_pTeardown = &teardown; }
  TeardownScope(TeardownScope const&) = delete;
  TeardownScope& operator=(TeardownScope const&) = delete;
  ~TeardownScope() { t_pTeardown = m_pOuter; }

private:
  Teardown* m_pOuter;
};

// Calls `visit` on `root` and every node below it in pre-order, with an
// explicit stack so that deep trees cannot exhaust the call stack.
template <class Visit> void VisitPreOrder(IBaseEntity* root, Visit&& visit) {
  if (!root)
    return;
  std::vector<IBaseEntity*> stack{root};
  while (!stack.empty()) {
    IBaseEntity* const node = stack.back();
    stack.pop_back();
    visit(node);
    std::vector<IBaseEntity*> const& children = node->GetAllChild();
    for (auto it = children.rbegin(); it != children.rend(); ++it)
      if (*it)
        stack.push_back(*it);
  }
}

} // namespace

// --- IBaseEntityImpl ----------------------------------------------------------

IBaseEntityImpl::IBaseEntityImpl() : m_pBaseEntity(nullptr) {}

IBaseEntityImpl::~IBaseEntityImpl() = default;

bool IBaseEntityImpl::Serialize(GDbArchive& ar) {
  if (ar.IsLoading())
    ar.ReadEmptyObject();
  else
    ar.WriteEmptyObject();
  return true;
}

// --- IBaseEntity: life and tree ------------------------------------------------

IBaseEntity::IBaseEntity()
    : m_pParent(nullptr), m_pImpl(nullptr), m_nObjectID(1), m_eObjectFlag(EGOBJECT_FLAG_MODIFIED) {}

IBaseEntity::~IBaseEntity() {
  delete m_pImpl;
  m_pImpl = nullptr;
  // A loop, because a destructor further down could add children here.
  while (!m_vecChildren.empty()) {
    std::vector<IBaseEntity*> children;
    children.swap(m_vecChildren);
    DeleteSubtrees(this, children.data(), children.size());
  }
  m_pParent = nullptr;
}

void IBaseEntity::DeleteSubtrees(IBaseEntity* anchor, IBaseEntity* const* nodes,
                                 std::size_t count) {
  Teardown* const running = t_pTeardown;
  if (running && running->current == anchor) {
    // `anchor` is being deleted by the running loop and is about to go away:
    // reattach its nodes to that loop's anchor, which outlives them.
    for (std::size_t i = count; i-- > 0;) {
      if (IBaseEntity* const node = nodes[i]) {
        node->m_pParent = running->anchor;
        running->pending.push_back(node);
      }
    }
    return;
  }

  Teardown teardown(anchor);
  TeardownScope scope(teardown);
  for (std::size_t i = count; i-- > 0;)
    if (nodes[i])
      teardown.pending.push_back(nodes[i]);
  while (!teardown.pending.empty()) {
    IBaseEntity* const node = teardown.pending.back();
    teardown.pending.pop_back();
    if (NeedsRecording(node))
      RecordDeletion(node, teardown.Project());
    teardown.current = node;
    delete node;
    teardown.current = nullptr;
  }
}

void IBaseEntity::AddChild(IBaseEntity* child) {
  if (!child)
    return;
  child->m_pParent = this;
  m_vecChildren.push_back(child);

  IBaseProject* const project = GetProject();
  if (!project)
    return;
  GDBDevice* const device = project->GetProjectDBDevice();
  if (device && device->GetDeviceContext().loading)
    return; // ids come from the store while loading
  VisitPreOrder(child, [project](IBaseEntity* node) {
    if (node->m_nObjectID < 2)
      node->m_nObjectID = project->GetUniqueID();
  });
}

bool IBaseEntity::DeleteChild(IBaseEntity* child) {
  auto it = std::find(m_vecChildren.begin(), m_vecChildren.end(), child);
  if (it == m_vecChildren.end())
    return false;
  const auto index = it - m_vecChildren.begin();
  if (child)
    DeleteSubtrees(this, &child, 1);
  // Destructors below may have changed the list; find the slot again if so.
  if (static_cast<std::size_t>(index) < m_vecChildren.size() && m_vecChildren[index] == child)
    m_vecChildren.erase(m_vecChildren.begin() + index);
  else if ((it = std::find(m_vecChildren.begin(), m_vecChildren.end(), child)) !=
           m_vecChildren.end())
    m_vecChildren.erase(it);
  return true;
}

void IBaseEntity::DeleteAllChild() {
  std::vector<IBaseEntity*> children;
  children.swap(m_vecChildren);
  DeleteSubtrees(this, children.data(), children.size());
}

void IBaseEntity::RegisterDeleteObjectToDB(IBaseEntity* entity) {
  if (NeedsRecording(entity))
    RecordDeletion(entity, entity->GetProject());
}

void IBaseEntity::GetAllLeafChild(IBaseEntity* entity, std::vector<IBaseEntity*>& out) {
  VisitPreOrder(entity, [&out](IBaseEntity* node) { out.push_back(node); });
}

IBaseProject* IBaseEntity::GetProject() const {
  IBaseEntity const* root = this;
  while (root->m_pParent)
    root = root->m_pParent;
  return dynamic_cast<IBaseProject*>(const_cast<IBaseEntity*>(root));
}

GDBDevice* IBaseEntity::GetDBDevice() const {
  IBaseProject* const project = GetProject();
  return project ? project->GetProjectDBDevice() : nullptr;
}

// --- IBaseEntity: flags ----------------------------------------------------------

void IBaseEntity::SetObjectFlag(bool set, EGOBJECT_FLAG flag) {
  if (!set) {
    _SetObjectFlagFunc(false, flag);
    return;
  }
  EGOBJECT_FLAG clearMask = static_cast<EGOBJECT_FLAG>(0);
  _DealWithObjectFlag(flag, clearMask);
  m_eObjectFlag = static_cast<EGOBJECT_FLAG>((m_eObjectFlag & ~clearMask) | flag);
}

void IBaseEntity::_SetObjectFlagFunc(bool set, EGOBJECT_FLAG flag) {
  m_eObjectFlag = static_cast<EGOBJECT_FLAG>(set ? m_eObjectFlag | flag : m_eObjectFlag & ~flag);
}

void IBaseEntity::_DealWithObjectFlag(EGOBJECT_FLAG& flag, EGOBJECT_FLAG& clearMask) {
  if (!GetIOFacade())
    return;
  // Only EGOBJECT_FLAG_MODIFIED depends on the project, so only setting it
  // walks to the root: flagging every node of a deep tree stays linear.
  IBaseProject* const project = (flag & EGOBJECT_FLAG_MODIFIED) ? GetProject() : nullptr;
  if (project) {
    GDBDevice* const device = project->GetProjectDBDevice();
    if (device && (HasObjectFlag(EGOBJECT_FLAG_NO_MODIFY) || device->GetDeviceContext().loading))
      flag = static_cast<EGOBJECT_FLAG>(flag & ~EGOBJECT_FLAG_MODIFIED);
  }
  int mask = 0;
  if (flag & EGOBJECT_FLAG_MODIFIED)
    mask |= EGOBJECT_FLAG_SWAPPED;
  if (flag & EGOBJECT_FLAG_SWAPPED)
    mask |= EGOBJECT_FLAG_MODIFIED;
  clearMask = static_cast<EGOBJECT_FLAG>(mask);
}

// --- IBaseEntity: impl object ------------------------------------------------------

IBaseEntityImpl* IBaseEntity::CreateBaseEntityImpl() { return new IBaseEntityImpl(); }

IBaseEntityImpl* IBaseEntity::GetBaseEntityImpl(bool load) {
  if (m_pImpl)
    return m_pImpl;
  IBaseEntityImpl* const impl = CreateBaseEntityImpl();
  if (!impl)
    return nullptr;
  SetImplObject(impl);
  IDataIOFacade* const facade = GetIOFacade();
  if (load && facade && HasObjectFlag(EGOBJECT_FLAG_SWAPPED))
    facade->LoadEntityData(this, GetDBDevice());
  return m_pImpl;
}

void IBaseEntity::SetImplObject(IBaseEntityImpl* impl) {
  if (impl != m_pImpl)
    delete m_pImpl;
  m_pImpl = impl;
  if (impl)
    impl->SetBaseEntity(this);
}

void IBaseEntity::SwapDataToDisk() {
  IDataIOFacade* const facade = GetIOFacade();
  if (!facade)
    return;
  facade->SwapOutEntityData(this, GetDBDevice());
  SetObjectFlag(true, EGOBJECT_FLAG_SWAPPED);
  SetObjectFlag(false, EGOBJECT_FLAG_MODIFIED);
  delete m_pImpl;
  m_pImpl = nullptr;
}

} // namespace zrn
