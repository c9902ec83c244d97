// Shared pieces of the server-store tests: host entity types, a fixture that
// gives each test a schema of its own on the throwaway server, and helpers
// that run a copy of the test program as a second process.
#ifndef ZRN_TESTS_STORE_POSTGRESTESTSUPPORT_H
#define ZRN_TESTS_STORE_POSTGRESTESTSUPPORT_H

#include <zrn/IO/TaggedObject.h>
#include <zrn/Object/Project.h>
#include <zrn/Store/PostgresDevice.h>
#include <zrn/Store/StoreFacade.h>
#include <zrn/System/CoreSystem.h>

#include <gtest/gtest.h>
#include <libpq-fe.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace zrn::test {

/// Impl data of the part entities: a text and a number.
class CPartImpl : public IBaseEntityImpl {
public:
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
};

class CPartEntity : public IBaseEntity {
public:
  IBaseEntityImpl* CreateBaseEntityImpl() override { return new CPartImpl; }
};

class CPartProject : public IBaseProject {
public:
  IBaseEntityImpl* CreateBaseEntityImpl() override { return new CPartImpl; }
};

/// The part data of `entity`, fetched through the facade when swapped out.
inline CPartImpl* PartOf(IBaseEntity* entity) {
  return dynamic_cast<CPartImpl*>(entity->GetBaseEntityImpl(true));
}

/// A new part under `parent`.
inline IBaseEntity* AddPart(IBaseEntity* parent, std::string text, long long number = 0) {
  auto* entity = new CPartEntity;
  PartOf(entity)->text = std::move(text);
  PartOf(entity)->number = number;
  parent->AddChild(entity);
  return entity;
}

/// Changes the part and marks it for the next save.
inline void ChangePart(IBaseEntity* entity, std::string text) {
  PartOf(entity)->text = std::move(text);
  entity->SetObjectFlag(true, EGOBJECT_FLAG_MODIFIED);
}

/// The entity `id` under `root` (root included); null when none.
inline IBaseEntity* FindEntity(IBaseEntity* root, long long id) {
  std::vector<IBaseEntity*> all;
  IBaseEntity::GetAllLeafChild(root, all);
  for (IBaseEntity* entity : all)
    if (entity->GetObjectID() == id)
      return entity;
  return nullptr;
}

/// "id:parent:text" of every entity under `root`, pre-order.
inline std::vector<std::string> Describe(IBaseEntity* root) {
  std::vector<IBaseEntity*> all;
  IBaseEntity::GetAllLeafChild(root, all);
  std::vector<std::string> out;
  for (IBaseEntity* entity : all)
    out.push_back(std::to_string(entity->GetObjectID()) + ":" +
                  std::to_string(entity->GetParent() ? entity->GetParent()->GetObjectID() : 0) +
                  ":" + (PartOf(entity) ? PartOf(entity)->text : "?"));
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
    facade.Types().Register<CPartEntity>(100);
    facade.Types().Register<CPartProject>(101);
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
  CPartProject* SavedProject() {
    auto* project = new CPartProject;
    project->SetProjectDBDevice(new GPostgresDevice);
    IBaseEntity* a = AddPart(project, "a");
    AddPart(a, "a1");
    AddPart(a, "a2");
    AddPart(project, "b");
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
