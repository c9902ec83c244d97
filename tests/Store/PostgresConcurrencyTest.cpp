// Several processes on one project, lost connections and reconnecting.
#include "Store/PostgresTestSupport.h"

#include <zrn/Profile/ErrorCode.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>

namespace zrn::test {
namespace {

// Run only as a second process (PostgresStore::RunChild): loads the store at
// ZRN_PG_CHILD_URL, does ZRN_PG_CHILD_ACTION ("change:ID:TEXT",
// "delete:ID" or "add:PARENT:TEXT") and saves.
TEST(PostgresChild, DISABLED_Act) {
  char const* url = std::getenv("ZRN_PG_CHILD_URL");
  char const* action = std::getenv("ZRN_PG_CHILD_ACTION");
  ASSERT_TRUE(url && action);
  GStoreFacade facade;
  facade.Types().Register<CNoteEntity>(kNoteType);
  facade.Types().Register<CNoteProject>(kNoteProjectType);
  SetIOFacade(&facade);
  auto* device = new GPostgresDevice;
  std::unique_ptr<IBaseProject> project(IBaseProject::LoadProject(0, Wide(url), device));
  ASSERT_TRUE(project) << device->LastError();
  char verb[16] = {};
  long long id = 0;
  char text[64] = {};
  ASSERT_GE(std::sscanf(action, "%15[a-z]:%lld:%63s", verb, &id, text), 2);
  IBaseEntity* entity = FindEntity(project.get(), id);
  ASSERT_TRUE(entity);
  if (!std::strcmp(verb, "change"))
    ChangeNote(entity, text, 0);
  else if (!std::strcmp(verb, "delete"))
    entity->GetParent()->DeleteChild(entity);
  else
    AddNote(entity, text);
  project->SaveProject(Wide(url));
  EXPECT_TRUE(facade.LastSaveSucceeded()) << device->LastError();
  project.reset();
  SetIOFacade(nullptr);
}

class PostgresConcurrency : public PostgresStore {
protected:
  // Saves `project`, expecting another process's change to refuse it.
  void ExpectConflict(IBaseProject* project, std::string const& message) {
    project->SaveProject(Url());
    EXPECT_FALSE(facade.LastSaveSucceeded());
    EXPECT_TRUE(Device(project)->LastErrorIsConflict());
    EXPECT_NE(Device(project)->LastError().find(message), std::string::npos)
        << Device(project)->LastError();
    EXPECT_EQ(GetError(), err_failed);
  }
};

TEST_F(PostgresConcurrency, OverwritingAnotherProcessesSaveFailsWholeAndRetryWorks) {
  std::unique_ptr<CNoteProject> saved(SavedProject());
  auto mine = Load();
  ASSERT_TRUE(mine);
  IBaseEntity* a = mine->GetAllChild()[0];
  IBaseEntity* a1 = a->GetAllChild()[0];
  IBaseEntity* a2 = a->GetAllChild()[1];
  ASSERT_EQ(RunChild("change:" + std::to_string(a1->GetObjectID()) + ":theirs"), 0);

  ChangeNote(a1, "mine", 0);
  ChangeNote(a2, "mine too", 0);
  ExpectConflict(mine.get(),
                 "entity " + std::to_string(a1->GetObjectID()) +
                     " was changed by another process since it was loaded: reload and retry");
  // Nothing of the save reached the store, and the tree still holds its
  // changes.
  EXPECT_TRUE(a1->HasObjectFlag(EGOBJECT_FLAG_MODIFIED));
  EXPECT_TRUE(a2->HasObjectFlag(EGOBJECT_FLAG_MODIFIED));
  {
    auto store = Load();
    ASSERT_TRUE(store);
    EXPECT_EQ(NoteOf(FindEntity(store.get(), a1->GetObjectID()))->text, "theirs");
    EXPECT_EQ(NoteOf(FindEntity(store.get(), a2->GetObjectID()))->text, "a2");
  }
  // Trying again changes nothing; giving up the conflicting change lets the
  // rest through, so the failed save left no revision behind.
  ExpectConflict(mine.get(), "was changed by another process");
  a1->SetObjectFlag(false, EGOBJECT_FLAG_MODIFIED);
  mine->SaveProject(Url());
  ASSERT_TRUE(facade.LastSaveSucceeded()) << Device(mine.get())->LastError();

  // The host's way out: reload, change again, save.
  auto reloaded = Load();
  ASSERT_TRUE(reloaded);
  ChangeNote(FindEntity(reloaded.get(), a1->GetObjectID()), "mine after all", 0);
  reloaded->SaveProject(Url());
  ASSERT_TRUE(facade.LastSaveSucceeded()) << Device(reloaded.get())->LastError();
  auto store = Load();
  ASSERT_TRUE(store);
  EXPECT_EQ(NoteOf(FindEntity(store.get(), a1->GetObjectID()))->text, "mine after all");
  EXPECT_EQ(NoteOf(FindEntity(store.get(), a2->GetObjectID()))->text, "mine too");
}

TEST_F(PostgresConcurrency, DisjointChangesOfTwoProcessesBothLand) {
  std::unique_ptr<CNoteProject> saved(SavedProject());
  auto mine = Load();
  ASSERT_TRUE(mine);
  IBaseEntity* a1 = mine->GetAllChild()[0]->GetAllChild()[0];
  IBaseEntity* b = mine->GetAllChild()[1];
  ASSERT_EQ(RunChild("add:" + std::to_string(a1->GetObjectID()) + ":added"), 0);
  ChangeNote(b, "b changed", 0);
  mine->SaveProject(Url());
  ASSERT_TRUE(facade.LastSaveSucceeded()) << Device(mine.get())->LastError();
  auto store = Load();
  ASSERT_TRUE(store);
  EXPECT_EQ(NoteOf(FindEntity(store.get(), b->GetObjectID()))->text, "b changed");
  ASSERT_EQ(FindEntity(store.get(), a1->GetObjectID())->GetAllChild().size(), 1u);
  // The other process's id counter was kept, though this save wrote a
  // smaller one.
  long long added = FindEntity(store.get(), a1->GetObjectID())->GetAllChild()[0]->GetObjectID();
  EXPECT_GT(store->GetUniqueID(), added);
}

TEST_F(PostgresConcurrency, DeletionsAndUpdatesNeverResurrectOrLoseRows) {
  std::unique_ptr<CNoteProject> saved(SavedProject());
  long long const a1 = saved->GetAllChild()[0]->GetAllChild()[0]->GetObjectID();
  long long const a2 = saved->GetAllChild()[0]->GetAllChild()[1]->GetObjectID();
  auto mine = Load();
  ASSERT_TRUE(mine);
  // Deleted there, changed here: no re-insert.
  ASSERT_EQ(RunChild("delete:" + std::to_string(a1)), 0);
  ChangeNote(FindEntity(mine.get(), a1), "changed here", 0);
  ExpectConflict(mine.get(), "entity " + std::to_string(a1) + " was changed by another process");
  // Changed there, deleted here: the change stays.
  mine = Load();
  ASSERT_EQ(RunChild("change:" + std::to_string(a2) + ":changed-there"), 0);
  IBaseEntity* mineA2 = FindEntity(mine.get(), a2);
  mineA2->GetParent()->DeleteChild(mineA2);
  ExpectConflict(mine.get(), "entity " + std::to_string(a2) + " was changed by another process");
  auto store = Load();
  ASSERT_TRUE(store);
  EXPECT_FALSE(FindEntity(store.get(), a1));
  EXPECT_EQ(NoteOf(FindEntity(store.get(), a2))->text, "changed-there");
}

TEST_F(PostgresConcurrency, ChildrenOfADeletedParentAreAConflict) {
  std::unique_ptr<CNoteProject> saved(SavedProject());
  long long const a = saved->GetAllChild()[0]->GetObjectID();
  long long const b = saved->GetAllChild()[1]->GetObjectID();
  auto mine = Load();
  ASSERT_TRUE(mine);
  ASSERT_EQ(RunChild("delete:" + std::to_string(a)), 0);
  AddNote(FindEntity(mine.get(), a), "orphan");
  ExpectConflict(mine.get(), "reload and retry");
  mine = Load();
  ASSERT_TRUE(mine);
  ASSERT_EQ(RunChild("add:" + std::to_string(b) + ":new-child"), 0);
  mine->DeleteChild(FindEntity(mine.get(), b));
  ExpectConflict(mine.get(), "reload and retry");
  // The store still forms one tree: b and its new child, no orphan.
  auto store = Load();
  ASSERT_TRUE(store);
  EXPECT_EQ(Outline(store.get()).size(), 3u);
  EXPECT_EQ(FindEntity(store.get(), b)->GetAllChild().size(), 1u);
}

TEST_F(PostgresConcurrency, TheSameNewIdFromTwoProcessesIsAConflict) {
  std::unique_ptr<CNoteProject> saved(SavedProject());
  auto mine = Load();
  ASSERT_TRUE(mine);
  ASSERT_EQ(RunChild("add:" + std::to_string(mine->GetObjectID()) + ":theirs"), 0);
  IBaseEntity* added = AddNote(mine.get(), "mine");
  ExpectConflict(mine.get(), "entity " + std::to_string(added->GetObjectID()) +
                                 " was also added by another process");
}

TEST_F(PostgresConcurrency, ConnectionLostInTheMiddleOfASaveKeepsThePreviousState) {
  auto* project = new CNoteProject;
  std::unique_ptr<CNoteProject> owner(project);
  project->SetProjectDBDevice(new GPostgresDevice);
  for (int i = 0; i < 20000; ++i)
    AddNote(project, "old");
  project->SaveProject(Url());
  ASSERT_TRUE(facade.LastSaveSucceeded()) << Device(project)->LastError();
  for (IBaseEntity* child : project->GetAllChild())
    ChangeNote(child, "new", 0);

  int const backend = PQbackendPID(Device(project)->Handle());
  facade.SetProgress([&](char const*, std::size_t, std::size_t) {
    Admin("SELECT pg_terminate_backend(" + std::to_string(backend) + ")");
  });
  project->SaveProject(Url());
  facade.SetProgress(nullptr);
  EXPECT_FALSE(facade.LastSaveSucceeded());
  EXPECT_FALSE(Device(project)->LastErrorIsConflict());
  EXPECT_NE(Device(project)->LastError().find("the connection to the store at postgresql://zrn@"),
            std::string::npos)
      << Device(project)->LastError();
  EXPECT_TRUE(project->GetAllChild().back()->HasObjectFlag(EGOBJECT_FLAG_MODIFIED));
  {
    auto store = Load();
    ASSERT_TRUE(store);
    EXPECT_EQ(NoteOf(store->GetAllChild().front())->text, "old");
    EXPECT_EQ(NoteOf(store->GetAllChild().back())->text, "old");
  }
  // The next save opens the same store again: the device reconnects.
  project->SaveProject(Url());
  ASSERT_TRUE(facade.LastSaveSucceeded()) << Device(project)->LastError();
  auto store = Load();
  ASSERT_TRUE(store);
  EXPECT_EQ(NoteOf(store->GetAllChild().back())->text, "new");
}

} // namespace
} // namespace zrn::test

namespace zrn::test {
namespace {

// A server of the test's own, started with scripts/pg-server.sh, that can be
// stopped and started again without disturbing the other tests.
class CPrivateServer {
public:
  CPrivateServer() {
    std::string const out = (std::filesystem::temp_directory_path() /
                             ("zrn-pg-start-" + std::to_string(std::random_device()())))
                                .string();
    if (std::system((Script() + " start > '" + out + "' 2>&1").c_str()) == 0) {
      std::ifstream in(out);
      for (std::string line; std::getline(in, line);)
        if (line.rfind("export ZRN_PG_SERVER_DIR='", 0) == 0)
          m_dir = line.substr(26, line.size() - 27);
      std::ifstream url(m_dir + "/url");
      std::getline(url, m_url);
    }
    std::filesystem::remove(out);
  }
  ~CPrivateServer() { Run("stop"); }
  CPrivateServer(CPrivateServer const&) = delete;
  CPrivateServer& operator=(CPrivateServer const&) = delete;

  std::string const& Url() const { return m_url; }
  /// "halt" stops the server at once, keeping its data; "resume" starts it.
  bool Run(char const* command) const {
    return !m_dir.empty() &&
           std::system((Script() + " " + command + " '" + m_dir + "'").c_str()) == 0;
  }

private:
  static std::string Script() { return "'" ZRN_SOURCE_DIR "/scripts/pg-server.sh'"; }
  std::string m_dir;
  std::string m_url;
};

TEST_F(PostgresConcurrency, ServerStoppedInTheMiddleOfASaveThenStartedAgain) {
  CPrivateServer server;
  ASSERT_FALSE(server.Url().empty()) << "cannot start a server of the test's own";
  std::wstring const url = Wide(server.Url());
  auto* project = new CNoteProject;
  std::unique_ptr<CNoteProject> owner(project);
  project->SetProjectDBDevice(new GPostgresDevice);
  for (int i = 0; i < 20000; ++i)
    AddNote(project, "old");
  project->SaveProject(url);
  ASSERT_TRUE(facade.LastSaveSucceeded()) << Device(project)->LastError();
  for (IBaseEntity* child : project->GetAllChild())
    ChangeNote(child, "new", 0);

  facade.SetProgress(
      [&](char const*, std::size_t, std::size_t) { EXPECT_TRUE(server.Run("halt")); });
  project->SaveProject(url);
  facade.SetProgress(nullptr);
  EXPECT_FALSE(facade.LastSaveSucceeded());
  EXPECT_NE(Device(project)->LastError().find("was lost"), std::string::npos)
      << Device(project)->LastError();
  // While the server is down, opening fails clearly and saving changes nothing.
  project->SaveProject(url);
  EXPECT_FALSE(facade.LastSaveSucceeded());
  EXPECT_NE(Device(project)->LastError().find("cannot connect to the store at"), std::string::npos)
      << Device(project)->LastError();
  EXPECT_TRUE(project->GetAllChild().back()->HasObjectFlag(EGOBJECT_FLAG_MODIFIED));

  ASSERT_TRUE(server.Run("resume"));
  {
    auto* device = new GPostgresDevice;
    std::unique_ptr<IBaseProject> store(IBaseProject::LoadProject(0, url, device));
    ASSERT_TRUE(store) << device->LastError();
    EXPECT_EQ(store->GetAllChild().size(), 20000u);
    EXPECT_EQ(NoteOf(store->GetAllChild().back())->text, "old");
  }
  project->SaveProject(url);
  ASSERT_TRUE(facade.LastSaveSucceeded()) << Device(project)->LastError();
  EXPECT_EQ(facade.LastSaveRowCount(), 20000u);
  auto* device = new GPostgresDevice;
  std::unique_ptr<IBaseProject> store(IBaseProject::LoadProject(0, url, device));
  ASSERT_TRUE(store) << device->LastError();
  EXPECT_EQ(NoteOf(store->GetAllChild().back())->text, "new");
}

} // namespace
} // namespace zrn::test
