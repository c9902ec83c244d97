// Shared pieces of the server-store tests, whose host types are the note
// entities of the store tests: a fixture that gives each test a schema of its
// own on the throwaway server, and a helper that runs a copy of the test
// program as a second process.
#ifndef ZRN_TESTS_STORE_POSTGRESTESTSUPPORT_H
#define ZRN_TESTS_STORE_POSTGRESTESTSUPPORT_H

#include <zrn/Store/PostgresDevice.h>
#include <zrn/Store/StoreFacade.h>
#include <zrn/System/CoreSystem.h>

#include "Store/StoreTestSupport.h"

#include <gtest/gtest.h>
#include <libpq-fe.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace zrn::test {

/// The entity `id` under `root` (root included); null when none.
inline IBaseEntity* FindEntity(IBaseEntity* root, long long id) {
  for (IBaseEntity* entity : AllEntities(root))
    if (entity->GetObjectID() == id)
      return entity;
  return nullptr;
}

/// "id:parent:text" of every entity under `root`, pre-order.
inline std::vector<std::string> Outline(IBaseEntity* root) {
  std::vector<std::string> out;
  for (IBaseEntity* entity : AllEntities(root))
    out.push_back(std::to_string(entity->GetObjectID()) + ":" +
                  std::to_string(entity->GetParent() ? entity->GetParent()->GetObjectID() : 0) +
                  ":" + (NoteOf(entity) ? NoteOf(entity)->text : "?"));
  return out;
}

inline std::wstring Wide(std::string const& text) { return std::wstring(text.begin(), text.end()); }

/// The throwaway server's URL (scripts/pg-server.sh); empty when none runs.
inline std::string ServerUrl() {
  char const* url = std::getenv("ZRN_TEST_PG_URL");
  return url ? url : "";
}

/// `url` with a search path of `schema`, so that the store's tables go there.
inline std::string UrlWithSchema(std::string const& url, std::string const& schema) {
  return url + (url.find('?') == std::string::npos ? "?" : "&") + "options=-csearch_path%3D" +
         schema;
}

/// Each test gets a fresh schema on the server (dropped afterwards) and a
/// facade that knows the part types.
class PostgresStore : public ::testing::Test {
protected:
  void SetUp() override {
    if (ServerUrl().empty())
      GTEST_SKIP() << "no PostgreSQL server for the tests: ZRN_TEST_PG_URL is not set "
                      "(scripts/run-tests.sh starts one with scripts/pg-server.sh)";
    std::random_device seed;
    m_schema = "zrn_t" + std::to_string(seed()) + std::to_string(seed());
    Admin("CREATE SCHEMA " + m_schema);
    m_url = UrlWithSchema(ServerUrl(), m_schema);
    facade.Types().Register<CNoteEntity>(kNoteType);
    facade.Types().Register<CNoteProject>(kNoteProjectType);
    SetIOFacade(&facade);
  }
  void TearDown() override {
    SetIOFacade(nullptr);
    if (!m_schema.empty())
      Admin("DROP SCHEMA " + m_schema + " CASCADE");
  }

  /// Runs `sql` on a connection of its own; the first value of the answer.
  std::string Admin(std::string const& sql) {
    PGconn* conn = PQconnectdb(m_url.empty() ? ServerUrl().c_str() : m_url.c_str());
    PQsetNoticeProcessor(
        conn, [](void*, char const*) {}, nullptr);
    PGresult* result = PQexec(conn, sql.c_str());
    EXPECT_TRUE(PQresultStatus(result) == PGRES_COMMAND_OK ||
                PQresultStatus(result) == PGRES_TUPLES_OK)
        << sql << ": " << PQerrorMessage(conn);
    std::string value = PQntuples(result) > 0 ? PQgetvalue(result, 0, 0) : "";
    PQclear(result);
    PQfinish(conn);
    return value;
  }

  std::wstring Url() const { return Wide(m_url); }
  std::string const& NarrowUrl() const { return m_url; }

  /// A new project with parts "a" (children "a1", "a2") and "b", saved.
  CNoteProject* SavedProject() {
    auto* project = new CNoteProject;
    project->SetProjectDBDevice(new GPostgresDevice);
    IBaseEntity* a = AddNote(project, "a");
    AddNote(a, "a1");
    AddNote(a, "a2");
    AddNote(project, "b");
    project->SaveProject(Url());
    EXPECT_TRUE(facade.LastSaveSucceeded()) << Device(project)->LastError();
    return project;
  }

  /// The project loaded from this test's store; null (and a failure) when
  /// the load fails.
  std::unique_ptr<IBaseProject> Load() {
    auto* device = new GPostgresDevice;
    IBaseProject* project = IBaseProject::LoadProject(0, Url(), device);
    EXPECT_TRUE(project) << device->LastError();
    if (!project)
      delete device;
    return std::unique_ptr<IBaseProject>(project);
  }

  static GPostgresDevice* Device(IBaseProject* project) {
    return static_cast<GPostgresDevice*>(project->GetProjectDBDevice());
  }

  /// Runs this program again as a second process, doing `action` (see
  /// PostgresChild.DISABLED_Act) on this test's store; its exit status.
  int RunChild(std::string const& action) const {
    std::string command =
        "ZRN_PG_CHILD_URL='" + m_url + "' ZRN_PG_CHILD_ACTION='" + action + "' '" +
        std::filesystem::path(GCoreSystem::GetExeFilePath()).string() +
        "' --gtest_also_run_disabled_tests --gtest_filter=PostgresChild.DISABLED_Act"
        " > /dev/null 2>&1";
    return std::system(command.c_str());
  }

  GStoreFacade facade;

private:
  std::string m_schema;
  std::string m_url;
};

} // namespace zrn::test

#endif // ZRN_TESTS_STORE_POSTGRESTESTSUPPORT_H
