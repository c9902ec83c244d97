// What the Python module keeps of one open project: the tree, its frame
// model when it is one, an index by id, and the locks every binding call
// takes.
#ifndef ZRN_PYTHON_PROJECTSTATE_H
#define ZRN_PYTHON_PROJECTSTATE_H

#include "FrameModel.h"

#include <zrn/Object/Project.h>
#include <zrn/Store/EntityStoreDevice.h>

#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <unordered_map>

namespace zrn::python {

/// A store that cannot be opened, read or written (raised as zrn.StoreError).
class CStoreError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

/// One project opened or created from Python, shared by the Project object
/// and every Entity, Props and Children object made from it, so that nothing
/// the library owns is freed while Python holds it. Close() frees the tree;
/// afterwards every use raises RuntimeError("project is closed").
///
/// Invariant while open: `index` maps the id of every entity of the tree to
/// it, and `generation` changes whenever an entity is deleted, so that a
/// wrapper whose generation differs looks its entity up again.
///
/// Thread safety: every member is used under `mutex` (CProjectLock).
class CProjectState {
public:
  explicit CProjectState(std::wstring where) : m_where(std::move(where)) {}
  ~CProjectState();
  CProjectState(CProjectState const&) = delete;
  CProjectState& operator=(CProjectState const&) = delete;

  /// Takes `project` (which owns its device), indexes it and attaches a
  /// frame model when the tree is a frame the sample host built.
  void Adopt(std::unique_ptr<IBaseProject> project);
  /// Frees the tree (and closes its store); nothing when closed already.
  /// Call under the project and library locks.
  void Close();

  bool IsOpen() const { return m_project != nullptr; }
  /// The project; throws RuntimeError when closed.
  IBaseProject& Project();
  /// The project's device.
  GEntityStoreDevice& Device();
  /// What the project was opened from.
  std::wstring const& Where() const { return m_where; }
  /// The frame model; null when the project holds no frame.
  CFrameModel* Model() const { return m_model.get(); }
  /// Why the project has no frame model.
  std::string const& NoModelReason() const { return m_noModel; }

  /// The entity with `id`; null when the tree has none.
  IBaseEntity* Find(long long id) const {
    auto found = m_index.find(id);
    return found == m_index.end() ? nullptr : found->second;
  }
  std::size_t Size() const { return m_index.size(); }
  /// Adds `root`'s subtree to the index.
  void Index(IBaseEntity* root);
  /// Removes the ids of `subtree` from the index (after its deletion).
  void Forget(std::vector<long long> const& subtree);
  unsigned long long Generation() const { return m_generation; }

  /// Reused for property names, so that a lookup allocates nothing once it
  /// has grown to the longest name.
  std::wstring& NameBuffer() { return m_name; }

  /// Guards this project and its entities.
  std::mutex& Mutex() { return m_mutex; }

private:
  void AttachModel();

  std::mutex m_mutex;
  std::wstring m_where;
  std::unique_ptr<IBaseProject> m_project;
  std::unique_ptr<CFrameModel> m_model; // over m_project's tree
  std::string m_noModel;
  std::unordered_map<long long, IBaseEntity*> m_index;
  unsigned long long m_generation = 0;
  std::wstring m_name;
};

/// The process-wide state of the library that projects share: the store
/// facade, the property schemes and the regeneration of the frame classes.
std::mutex& LibraryMutex();

/// Holds a project's mutex, and the library's when `library` is true, for
/// one binding call. Each is tried first; when it is taken, the GIL is let
/// go while waiting, so that the thread holding it can finish a call that
/// released the GIL. The project's mutex is always taken before the
/// library's.
class CProjectLock {
public:
  CProjectLock(CProjectState& state, bool library);
  ~CProjectLock();
  CProjectLock(CProjectLock const&) = delete;
  CProjectLock& operator=(CProjectLock const&) = delete;

  /// Takes the library's mutex too, when it is not held yet.
  void Library();

private:
  std::unique_lock<std::mutex> m_project;
  std::unique_lock<std::mutex> m_library;
};

/// Locks `mutex` as CProjectLock does: tried first, waited for without the
/// GIL.
std::unique_lock<std::mutex> LockReleasingGil(std::mutex& mutex);

} // namespace zrn::python

#endif
