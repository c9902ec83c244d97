#include "ProjectState.h"

#include <pybind11/pybind11.h>

#include <zrn/Object/Entity.h>

namespace py = pybind11;

namespace zrn::python {

CProjectState::~CProjectState() {
  // The last wrapper may go while the project is open (a Project object
  // dropped by a thread that never closed it).
  if (IsOpen()) {
    auto library = LockReleasingGil(LibraryMutex());
    Close();
  }
}

void CProjectState::Adopt(std::unique_ptr<IBaseProject> project) {
  m_project = std::move(project);
  m_index.clear();
  Index(m_project.get());
  AttachModel();
}

void CProjectState::AttachModel() {
  auto model = std::make_unique<CFrameModel>();
  if (model->Attach(*m_project, m_noModel)) {
    m_model = std::move(model);
    return;
  }
  // Attach may have linked some objects before it gave up.
  for (auto const& [id, entity] : m_index)
    if (auto* object = dynamic_cast<CFrameObject*>(entity))
      object->SetModel(nullptr);
}

void CProjectState::Close() {
  if (!IsOpen())
    return;
  m_model.reset(); // it refers to the tree
  m_index.clear();
  ++m_generation;
  m_project.reset();
}

IBaseProject& CProjectState::Project() {
  if (!m_project)
    throw std::runtime_error("project is closed");
  return *m_project;
}

GEntityStoreDevice& CProjectState::Device() {
  // Projects made here always get a store device (zrn.open, zrn.create).
  return static_cast<GEntityStoreDevice&>(*Project().GetProjectDBDevice());
}

void CProjectState::Index(IBaseEntity* root) {
  std::vector<IBaseEntity*> pending{root}; // no recursion: trees may be deep
  while (!pending.empty()) {
    IBaseEntity* entity = pending.back();
    pending.pop_back();
    m_index[entity->GetObjectID()] = entity;
    for (IBaseEntity* child : entity->GetAllChild())
      pending.push_back(child);
  }
}

void CProjectState::Forget(std::vector<long long> const& subtree) {
  for (long long id : subtree)
    m_index.erase(id);
  ++m_generation;
}

std::mutex& LibraryMutex() {
  static std::mutex mutex;
  return mutex;
}

std::unique_lock<std::mutex> LockReleasingGil(std::mutex& mutex) {
  std::unique_lock<std::mutex> lock(mutex, std::try_to_lock);
  if (!lock.owns_lock()) {
    py::gil_scoped_release released;
    lock.lock();
  }
  return lock;
}

CProjectLock::CProjectLock(CProjectState& state, bool library)
    : m_project(LockReleasingGil(state.Mutex())) {
  if (library)
    Library();
}

void CProjectLock::Library() {
  if (!m_library.owns_lock())
    m_library = LockReleasingGil(LibraryMutex());
}

CProjectLock::~CProjectLock() = default;

} // namespace zrn::python
