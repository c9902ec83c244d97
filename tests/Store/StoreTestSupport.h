// Shared pieces of the project-store tests: host entity types whose impl
// holds a text and a number, tree builders and walkers, a fixture that
// installs a facade for one test, and raw access to a store file.
#ifndef ZRN_TESTS_STORE_STORETESTSUPPORT_H
#define ZRN_TESTS_STORE_STORETESTSUPPORT_H

#include <zrn/IO/DbArchiveImpl.h>
#include <zrn/IO/MemStream.h>
#include <zrn/IO/TaggedObject.h>
#include <zrn/Object/Project.h>
#include <zrn/Property/Variant.h>
#include <zrn/Store/SqliteDevice.h>
#include <zrn/Store/StoreFacade.h>

#include "Support/TempFolder.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace zrn::test {

/// Impl data of the note entities: a text and a number, one tagged object.
/// Counts the impl objects created, so that tests can tell whether a load
/// read any data.
class CNoteImpl : public IBaseEntityImpl {
public:
  CNoteImpl() { ++s_nCreated; }

  bool Serialize(GDbArchive& ar) override {
    GTaggedObject object(ar, typeid(*this));
    if (!ar.IsLoading())
      return object.Write(1, [&] {
        object.Block(1, [&] { ar << text; });
        object.Block(2, [&] { ar << number; });
      });
    return object.Read(1, [&](unsigned char tag) {
      if (tag == 1)
        ar >> text;
      else if (tag == 2)
        ar >> number;
      return tag == 1 || tag == 2;
    });
  }

  std::string text;
  long long number = 0;
  /// Process-wide; StoreTest puts it back after each test.
  static inline int s_nCreated = 0;
};

/// A host entity whose data is a CNoteImpl.
class CNoteEntity : public IBaseEntity {
public:
  IBaseEntityImpl* CreateBaseEntityImpl() override { return new CNoteImpl; }
};

/// A host project with a note of its own.
class CNoteProject : public IBaseProject {
public:
  IBaseEntityImpl* CreateBaseEntityImpl() override { return new CNoteImpl; }
};

/// A host entity with the library's empty impl.
class CMarkerEntity : public IBaseEntity {};

/// A host class no facade registers.
class CStrangerEntity : public IBaseEntity {};

constexpr int kNoteType = 100;
constexpr int kMarkerType = 101;
constexpr int kNoteProjectType = 102;

/// The note of `entity`, read through the facade when swapped out; null
/// when its impl is no note.
inline CNoteImpl* NoteOf(IBaseEntity* entity) {
  return dynamic_cast<CNoteImpl*>(entity->GetBaseEntityImpl(true));
}

/// A new note entity with `text` and `number`, added as the last child of
/// `parent`.
inline CNoteEntity* AddNote(IBaseEntity* parent, std::string text, long long number = 0) {
  auto* entity = new CNoteEntity;
  auto* note = NoteOf(entity);
  note->text = std::move(text);
  note->number = number;
  parent->AddChild(entity);
  return entity;
}

/// Changes `entity`'s note and marks it for the next save.
inline void ChangeNote(IBaseEntity* entity, std::string text, long long number) {
  auto* note = NoteOf(entity);
  note->text = std::move(text);
  note->number = number;
  entity->SetObjectFlag(true, EGOBJECT_FLAG_MODIFIED);
}

/// Every entity of the tree under `root` (root included), pre-order,
/// without recursion.
inline std::vector<IBaseEntity*> AllEntities(IBaseEntity* root) {
  std::vector<IBaseEntity*> out;
  IBaseEntity::GetAllLeafChild(root, out);
  return out;
}

/// What the store keeps of one entity, comparable across a round trip.
struct SNodeView {
  long long id = 0;
  long long parentId = 0;
  int type = -1;
  /// The flag bits other than MODIFIED, SWAPPED and STORED.
  int flags = 0;
  bool hasNote = false;
  std::string text;
  long long number = 0;
  bool operator==(SNodeView const&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, SNodeView const& v) {
  return out << "{id " << v.id << " parent " << v.parentId << " type " << v.type
             << " flags " << v.flags << " note " << v.hasNote << " '"
             << v.text.substr(0, 40) << "' " << v.number << "}";
}

/// The tree under `root` in pre-order; reads every impl (through the facade
/// when swapped out) when `withData` is true.
inline std::vector<SNodeView> Describe(IBaseEntity* root, CEntityTypeRegistry const& types,
                                       bool withData = true) {
  std::vector<SNodeView> out;
  for (IBaseEntity* e : AllEntities(root)) {
    SNodeView view;
    view.id = e->GetObjectID();
    view.parentId = e->GetParent() ? e->GetParent()->GetObjectID() : 0;
    view.type = types.TypeOf(*e);
    for (int shift = 3; shift < 31; ++shift)
      if (e->HasObjectFlag(static_cast<EGOBJECT_FLAG>(1 << shift)))
        view.flags |= 1 << shift;
    if (withData) {
      if (auto* note = NoteOf(e)) {
        view.hasNote = true;
        view.text = note->text;
        view.number = note->number;
      }
    }
    out.push_back(std::move(view));
  }
  return out;
}

/// The ids of `parent`'s children in order.
inline std::vector<long long> ChildIds(IBaseEntity* parent) {
  std::vector<long long> ids;
  for (IBaseEntity* child : parent->GetAllChild())
    ids.push_back(child->GetObjectID());
  return ids;
}

/// A note's archived bytes, as the store keeps them in a row.
inline std::string ArchivedNote(std::string text, long long number) {
  CNoteImpl note;
  note.text = std::move(text);
  note.number = number;
  GMemStream stream(true, nullptr, 0);
  GDbArchiveImpl ar(&stream);
  note.Serialize(ar);
  return std::string(stream.GetData(), stream.GetDataSize());
}

/// A note read back from archived bytes.
inline std::pair<std::string, long long> ReadNote(std::string const& bytes) {
  CNoteImpl note;
  GMemStream stream(bytes.data(), static_cast<unsigned>(bytes.size()));
  GDbArchiveImpl ar(&stream);
  note.Serialize(ar);
  return {note.text, note.number};
}

/// A plain SQLite connection to a store file, beside the device's own.
class RawDb {
public:
  explicit RawDb(std::string const& path) {
    if (sqlite3_open_v2(path.c_str(), &m_db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) !=
        SQLITE_OK)
      ADD_FAILURE() << "cannot open " << path << ": " << sqlite3_errmsg(m_db);
  }
  ~RawDb() { sqlite3_close(m_db); }
  RawDb(RawDb const&) = delete;
  RawDb& operator=(RawDb const&) = delete;

  /// Runs `sql`; true when it succeeded.
  bool Exec(std::string const& sql) {
    char* message = nullptr;
    const bool ok = sqlite3_exec(m_db, sql.c_str(), nullptr, nullptr, &message) == SQLITE_OK;
    if (!ok)
      ADD_FAILURE() << sql << ": " << (message ? message : "?");
    sqlite3_free(message);
    return ok;
  }
  /// The first column of the first row of `sql` as an integer; -1 when no
  /// row.
  long long Integer(std::string const& sql) {
    sqlite3_stmt* statement = nullptr;
    long long value = -1;
    if (sqlite3_prepare_v2(m_db, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK)
      ADD_FAILURE() << sql << ": " << sqlite3_errmsg(m_db);
    else if (sqlite3_step(statement) == SQLITE_ROW)
      value = sqlite3_column_int64(statement, 0);
    sqlite3_finalize(statement);
    return value;
  }
  sqlite3* Handle() const { return m_db; }

private:
  sqlite3* m_db = nullptr;
};

/// A temporary folder, a facade with the test types registered and
/// installed, and helpers to save and load. Puts the facade pointer, the
/// error-box counter and the impl counter back as they were.
class StoreTest : public ::testing::Test {
protected:
  StoreTest() {
    facade.Types().Register<CNoteEntity>(kNoteType);
    facade.Types().Register<CMarkerEntity>(kMarkerType);
    facade.Types().Register<CNoteProject>(kNoteProjectType);
    SetIOFacade(&facade);
  }
  void TearDown() override {
    SetIOFacade(m_previousFacade);
    g_nSerializeErrorMsgBoxMaxCount = m_previousBoxes;
    CNoteImpl::s_nCreated = m_previousCreated;
  }

  /// A file in the test's folder, as the device takes it.
  std::wstring Path(std::string const& name = "project.db") const { return folder.Wide(name); }
  /// The same file as UTF-8.
  std::string Narrow(std::string const& name = "project.db") const {
    return (folder.Path() / name).string();
  }

  /// Saves `project` to `path`, giving it a device first when it has none;
  /// true when the save committed.
  bool Save(IBaseProject& project, std::wstring const& path) {
    if (!project.GetProjectDBDevice())
      project.SetProjectDBDevice(new GSqliteDevice);
    project.SaveProject(path);
    return facade.LastSaveSucceeded();
  }
  bool Save(IBaseProject& project) { return Save(project, Path()); }

  /// Loads the project at `path` through a new device; null when the load
  /// fails, with the device's error in `error`.
  std::unique_ptr<IBaseProject> Load(std::wstring const& path, bool eager,
                                     std::string* error = nullptr) {
    auto* device = new GSqliteDevice;
    facade.SetEagerLoad(eager);
    std::unique_ptr<IBaseProject> project(IBaseProject::LoadProject(0, path, device));
    if (!project) {
      if (error)
        *error = device->LastError();
      delete device; // still the caller's after a failed load
    }
    return project;
  }
  std::unique_ptr<IBaseProject> Load(bool eager = true) { return Load(Path(), eager); }

  static GSqliteDevice& DeviceOf(IBaseProject& project) {
    return dynamic_cast<GSqliteDevice&>(*project.GetProjectDBDevice());
  }

  TempFolder folder;
  GStoreFacade facade;

private:
  IDataIOFacade* m_previousFacade = GetIOFacade();
  int m_previousBoxes = g_nSerializeErrorMsgBoxMaxCount;
  int m_previousCreated = CNoteImpl::s_nCreated;
};

} // namespace zrn::test

#endif // ZRN_TESTS_STORE_STORETESTSUPPORT_H
