#include "Store/PostgresTestSupport.h"

#include <zrn/Property/Variant.h>
#include <zrn/Store/SqliteDevice.h>
#include <zrn/Store/StoreDevice.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>

#include <memory>
#include <string>

namespace zrn::test {
namespace {

using PostgresRoundTrip = PostgresStore;

TEST_F(PostgresRoundTrip, TreeComesBackLazilyAndEagerly) {
  std::unique_ptr<CNoteProject> saved(SavedProject());
  NoteOf(saved.get())->text = "root";
  saved->SetObjectFlag(true, EGOBJECT_FLAG_MODIFIED);
  std::string big(100000, ' '); // every byte value but 0, which ends a text
  for (std::size_t i = 0; i < big.size(); ++i)
    big[i] = static_cast<char>(i % 255 + 1);
  AddNote(saved.get(), "big", -5);
  saved->SaveProject(Url());
  ASSERT_TRUE(facade.LastSaveSucceeded()) << Device(saved.get())->LastError();
  ChangeNote(saved->GetAllChild().back(), big, -5);
  saved->SaveProject(Url());
  ASSERT_TRUE(facade.LastSaveSucceeded()) << Device(saved.get())->LastError();

  for (bool eager : {false, true}) {
    SCOPED_TRACE(eager ? "eager" : "lazy");
    facade.SetEagerLoad(eager);
    auto loaded = Load();
    ASSERT_TRUE(loaded);
    IBaseEntity* last = loaded->GetAllChild().back();
    EXPECT_EQ(last->HasObjectFlag(EGOBJECT_FLAG_SWAPPED), !eager);
    std::vector<std::string> expected = Outline(saved.get());
    std::vector<std::string> got = Outline(loaded.get());
    EXPECT_EQ(std::vector(got.begin(), got.end() - 1),
              std::vector(expected.begin(), expected.end() - 1));
    EXPECT_TRUE(NoteOf(last)->text == big);
    EXPECT_EQ(NoteOf(last)->number, -5);
    // New entities after a reload never take an id the store holds.
    EXPECT_GT(loaded->GetUniqueID(), last->GetObjectID());
  }
}

TEST_F(PostgresRoundTrip, IncrementalSaveWritesChangesAndDeletions) {
  std::unique_ptr<CNoteProject> project(SavedProject());
  IBaseEntity* a = project->GetAllChild()[0];
  ChangeNote(a->GetAllChild()[1], "a2 changed", 0);
  project->DeleteChild(project->GetAllChild()[1]); // b
  AddNote(a, "a3");
  project->SaveProject(Url());
  ASSERT_TRUE(facade.LastSaveSucceeded()) << Device(project.get())->LastError();
  EXPECT_EQ(facade.LastSaveRowCount(), 3u);
  auto loaded = Load();
  ASSERT_TRUE(loaded);
  EXPECT_EQ(Outline(loaded.get()), Outline(project.get()));

  // A loaded tree saves its own changes too, and an unchanged one writes none.
  loaded->SaveProject(Url());
  EXPECT_EQ(facade.LastSaveRowCount(), 0u);
  ChangeNote(loaded->GetAllChild()[0], "a again", 0);
  loaded->DeleteChild(loaded->GetAllChild()[0]->GetAllChild()[0]);
  loaded->SaveProject(Url());
  ASSERT_TRUE(facade.LastSaveSucceeded()) << Device(loaded.get())->LastError();
  auto again = Load();
  ASSERT_TRUE(again);
  EXPECT_EQ(Outline(again.get()), Outline(loaded.get()));
}

TEST_F(PostgresRoundTrip, SiblingOrderAndSwappedOutDataSurvive) {
  std::unique_ptr<CNoteProject> project(SavedProject());
  IBaseEntity* a = project->GetAllChild()[0];
  AddNote(a, "x")->SetObjectID(60);
  AddNote(a, "y"); // children 3, 4, 60, 6: an explicit order
  IBaseEntity* swapped = AddNote(project.get(), "kept while swapped");
  swapped->SwapDataToDisk();
  project->SaveProject(Url());
  ASSERT_TRUE(facade.LastSaveSucceeded()) << Device(project.get())->LastError();
  auto loaded = Load();
  ASSERT_TRUE(loaded);
  EXPECT_EQ(Outline(loaded.get()), Outline(project.get()));
}

TEST_F(PostgresRoundTrip, FactoryPicksTheDeviceByItsText) {
  std::unique_ptr<GEntityStoreDevice> server(CreateStoreDevice(L"PostgreSQL://host/db"));
  std::unique_ptr<GEntityStoreDevice> shortForm(CreateStoreDevice(L"postgres://host/db"));
  std::unique_ptr<GEntityStoreDevice> file(CreateStoreDevice(L"postgres.zrndb"));
  EXPECT_TRUE(dynamic_cast<GPostgresDevice*>(server.get()));
  EXPECT_TRUE(dynamic_cast<GPostgresDevice*>(shortForm.get()));
  EXPECT_TRUE(dynamic_cast<GSqliteDevice*>(file.get()));

  std::unique_ptr<CNoteProject> saved(SavedProject());
  GEntityStoreDevice* device = CreateStoreDevice(Url());
  std::unique_ptr<IBaseProject> loaded(IBaseProject::LoadProject(0, Url(), device));
  ASSERT_TRUE(loaded) << device->LastError();
  EXPECT_EQ(Outline(loaded.get()), Outline(saved.get()));
}

TEST_F(PostgresRoundTrip, ErrorsNameTheStoreWithoutItsPassword) {
  GPostgresDevice device;
  std::string url = ServerUrl();
  std::size_t at = url.find('@');
  ASSERT_NE(at, std::string::npos);
  std::string wrong = url.substr(0, at) + "x" + url.substr(at); // a wrong password
  EXPECT_FALSE(device.Open(Wide(wrong + "?sslmode=disable&password=other")));
  std::string password = url.substr(url.rfind(':', at) + 1, at - url.rfind(':', at) - 1);
  EXPECT_EQ(
      device.LastError().rfind("cannot connect to the store at postgresql://zrn@127.0.0.1:", 0), 0u)
      << device.LastError();
  EXPECT_NE(device.LastError().find("?sslmode=disable: "), std::string::npos) << device.LastError();
  EXPECT_EQ(device.LastError().find(password), std::string::npos);
  EXPECT_EQ(device.LastError().find("other"), std::string::npos);
  EXPECT_FALSE(device.IsOpen());
  // The key=value form is hidden as well.
  EXPECT_FALSE(device.Open(L"host=127.0.0.1 port=1 password=secret connect_timeout=2"));
  EXPECT_EQ(device.LastError().find("secret"), std::string::npos) << device.LastError();
}

// A server that takes the connection and never answers: Open gives up after
// the device's connect timeout, also when the URL names none. Needs no server.
TEST(PostgresDevice, OpenGivesUpOnASilentServer) {
  boost::asio::io_context io;
  boost::asio::ip::tcp::acceptor silent(
      io, {boost::asio::ip::make_address("127.0.0.1"), 0}); // listens, never accepts
  std::string const url =
      "postgresql://zrn@127.0.0.1:" + std::to_string(silent.local_endpoint().port()) + "/x";
  GPostgresDevice device;
  device.SetConnectTimeout(1);
  EXPECT_FALSE(device.Open(Wide(url)));
  EXPECT_NE(device.LastError().find("timeout"), std::string::npos) << device.LastError();
  EXPECT_FALSE(device.IsOpen());
}

TEST_F(PostgresRoundTrip, SchemaVersionsAndForeignTables) {
  {
    GPostgresDevice device;
    ASSERT_TRUE(device.Open(Url())) << device.LastError();
    EXPECT_EQ(device.SchemaVersion(), GPostgresDevice::kSchemaVersion);
  }
  Admin("UPDATE StoreInfo SET Value = '99' WHERE Key = 'version'");
  GPostgresDevice device;
  EXPECT_FALSE(device.Open(Url()));
  EXPECT_NE(device.LastError().find("schema version 99, newer than this library reads"),
            std::string::npos)
      << device.LastError();
  Admin("DROP TABLE StoreInfo");
  EXPECT_FALSE(device.Open(Url()));
  EXPECT_NE(device.LastError().find("not a project store"), std::string::npos)
      << device.LastError();
}

TEST_F(PostgresRoundTrip, TablesByNameForQueriesAndData) {
  std::unique_ptr<CNoteProject> project(SavedProject());
  GPostgresDevice& device = *Device(project.get());
  std::vector<CVariant> values;
  device.QueryColumn("EntityTable", {"ID", "data", "Type"}, "PID", 0, values);
  ASSERT_EQ(values.size(), 3u) << device.LastError();
  EXPECT_EQ(values[0].toInt64(), project->GetObjectID());
  EXPECT_EQ(values[2].toInt64(), kNoteProjectType);
  device.QueryColumn("StoreInfo", {"Value"}, "Key", 0, values);
  EXPECT_TRUE(values.empty());

  device.QueryColumn("EntityTable\"; DROP TABLE EntityTable; --", {"ID"}, "PID", 0, values);
  EXPECT_TRUE(values.empty());
  EXPECT_NE(device.LastError().find("no table named"), std::string::npos);
  device.QueryColumn("EntityTable", {"ID", "Nope"}, "PID", 0, values);
  EXPECT_NE(device.LastError().find("no column named \"Nope\""), std::string::npos);

  Admin("CREATE TABLE Notes(ID BIGINT PRIMARY KEY, Data BYTEA)");
  std::string bytes("\0\x01\xff", 3);
  std::string read;
  EXPECT_TRUE(device.WriteData("notes", 7, bytes)) << device.LastError();
  EXPECT_TRUE(device.ReadData("Notes", 7, read));
  EXPECT_EQ(read, bytes);
  EXPECT_TRUE(device.DeleteRecords("Notes", {7}));
  EXPECT_FALSE(device.ReadData("Notes", 7, read));
}

} // namespace
} // namespace zrn::test

namespace zrn::test {
namespace {

TEST_F(PostgresRoundTrip, SaveAsTakesSwappedOutDataFromThePreviousStore) {
  std::unique_ptr<CNoteProject> saved(SavedProject());
  auto loaded = Load(); // every entity swapped out
  ASSERT_TRUE(loaded);
  ChangeNote(loaded->GetAllChild()[1], "changed before the save as", 0);
  std::string const other = "zrn_t_copy" + std::to_string(std::random_device()());
  Admin("CREATE SCHEMA " + other);
  std::wstring const copyUrl = Wide(UrlWithSchema(ServerUrl(), other));
  loaded->SaveProject(copyUrl);
  EXPECT_TRUE(facade.LastSaveSucceeded()) << Device(loaded.get())->LastError();
  EXPECT_EQ(facade.LastSaveRowCount(), 5u);
  auto* device = new GPostgresDevice;
  std::unique_ptr<IBaseProject> copy(IBaseProject::LoadProject(0, copyUrl, device));
  ASSERT_TRUE(copy) << device->LastError();
  EXPECT_EQ(Outline(copy.get()), Outline(loaded.get()));
  copy.reset();
  loaded.reset();
  Admin("DROP SCHEMA " + other + " CASCADE");
}

} // namespace
} // namespace zrn::test
