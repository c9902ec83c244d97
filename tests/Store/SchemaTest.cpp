// Files that are not what a store expects: empty stores, rows that do not
// form a tree, unreadable data, other schema versions, other files, and
// table or column names that are not the schema's.
#include "Store/StoreTestSupport.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <iterator>

namespace zrn::test {
namespace {

std::string Lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

class StoreFile : public StoreTest {
protected:
  // Saves a root with three notes, the middle one with a child: ids 2, 3, 5
  // under the root and 4 under 3.
  void SaveSmallProject() {
    IBaseProject project;
    AddNote(&project, "a", 1);
    AddNote(AddNote(&project, "b", 2), "b1", 21);
    AddNote(&project, "c", 3);
    ASSERT_EQ(ChildIds(&project), (std::vector<long long>{2, 3, 5}));
    ASSERT_TRUE(Save(project)) << DeviceOf(project).LastError();
  }

  // For each (description, SQL) pair: applies the SQL to a copy of the saved
  // store and runs `check` on it with eager and with lazy loading.
  template <class Check>
  void WithEachDamage(std::initializer_list<std::pair<char const*, char const*>> damages,
                      Check check) {
    std::filesystem::copy_file(Narrow(), Narrow("original.db"));
    for (auto const& [what, sql] : damages) {
      SCOPED_TRACE(what);
      std::filesystem::copy_file(Narrow("original.db"), Narrow(),
                                 std::filesystem::copy_options::overwrite_existing);
      {
        RawDb raw(Narrow());
        ASSERT_TRUE(raw.Exec(sql));
      }
      for (bool eager : {true, false}) {
        SCOPED_TRACE(eager ? "eager" : "lazy");
        check(eager);
      }
    }
  }
};

TEST_F(StoreFile, EmptyStoreLoadsNothingAndLeavesTheDeviceToTheCaller) {
  {
    GSqliteDevice device;
    ASSERT_TRUE(device.Open(Path("empty.db"))) << device.LastError();
    EXPECT_EQ(device.SchemaVersion(), GSqliteDevice::kSchemaVersion);
  }
  for (std::string name : {"empty.db", "never-created.db"}) {
    SCOPED_TRACE(name);
    auto* device = new GSqliteDevice;
    EXPECT_EQ(IBaseProject::LoadProject(0, Path(name), device), nullptr);
    // The device is still ours, open and usable.
    EXPECT_TRUE(device->IsOpen());
    std::vector<CVariant> rows;
    device->QueryColumn("EntityTable", {"ID"}, "PID", 0, rows);
    EXPECT_TRUE(rows.empty());
    delete device;
  }
}

TEST_F(StoreFile, RowsThatDoNotFormATreeLoadNothing) {
  SaveSmallProject();
  WithEachDamage(
      {
          {"a missing parent", "UPDATE EntityTable SET PID = 999 WHERE ID = 5"},
          {"a cycle of two", "UPDATE EntityTable SET PID = 4 WHERE ID = 3"},
          {"its own parent", "UPDATE EntityTable SET PID = 4 WHERE ID = 4"},
          {"an unknown type", "UPDATE EntityTable SET Type = 555 WHERE ID = 4"},
          {"a root of no project type", "UPDATE EntityTable SET Type = 0 WHERE ID = 1"},
          {"a second root", "UPDATE EntityTable SET PID = 0 WHERE ID = 3"},
      },
      [&](bool eager) {
        std::string error;
        EXPECT_FALSE(Load(Path(), eager, &error));
        EXPECT_FALSE(error.empty());
      });
}

TEST_F(StoreFile, UnreadableDataHarmsOnlyItsOwnEntity) {
  SaveSmallProject();
  WithEachDamage(
      {
          {"random bytes", "UPDATE EntityTable SET Data = randomblob(64) WHERE ID = 4"},
          {"a huge claimed length",
           "UPDATE EntityTable SET Data = x'01000101ffffff7fffffff7f' WHERE ID = 4"},
          {"cut short", "UPDATE EntityTable SET Data = substr(Data, 1, 9) WHERE ID = 4"},
          {"empty", "UPDATE EntityTable SET Data = x'' WHERE ID = 4"},
          {"null", "UPDATE EntityTable SET Data = NULL WHERE ID = 4"},
          {"text", "UPDATE EntityTable SET Data = 'not a blob' WHERE ID = 4"},
      },
      [&](bool eager) {
        std::string error;
        auto loaded = Load(Path(), eager, &error);
        if (!loaded) {
          EXPECT_FALSE(error.empty());
          return;
        }
        // The damaged note does not read as it was saved; its neighbours do.
        ASSERT_EQ(loaded->GetAllChild().size(), 3u);
        auto* damaged = NoteOf(loaded->GetAllChild()[1]->GetAllChild()[0]);
        ASSERT_TRUE(damaged);
        EXPECT_FALSE(damaged->number == 21 && damaged->text == "b1");
        EXPECT_EQ(NoteOf(loaded->GetAllChild()[2])->text, "c");
      });
}

// Writes a version-1 store at `path` holding the rows of the store `from`.
void WriteVersionOne(std::string const& from, std::string const& path) {
  RawDb raw(path);
  ASSERT_TRUE(raw.Exec("CREATE TABLE EntityTable(ID INTEGER PRIMARY KEY, PID INTEGER NOT NULL, "
                       "Seq INTEGER NOT NULL DEFAULT 0, Type INTEGER NOT NULL, "
                       "Flags INTEGER NOT NULL DEFAULT 0, Data BLOB);"
                       "CREATE TABLE ProjectTable(ID INTEGER PRIMARY KEY, Data BLOB);"
                       "PRAGMA user_version = 1;"));
  ASSERT_TRUE(raw.Exec("ATTACH DATABASE '" + from +
                       "' AS v2;"
                       "INSERT INTO EntityTable SELECT ID, PID, Seq, Type, Flags, Data "
                       "FROM v2.EntityTable;"
                       "INSERT INTO ProjectTable SELECT ID, Data FROM v2.ProjectTable;"
                       "DETACH DATABASE v2;"));
}

TEST_F(StoreFile, VersionOneIsMigratedAndLoads) {
  SaveSmallProject();
  WriteVersionOne(Narrow(), Narrow("v1.db"));
  {
    GSqliteDevice device;
    ASSERT_TRUE(device.Open(Path("v1.db"))) << device.LastError();
    EXPECT_EQ(device.SchemaVersion(), 2);
  }
  {
    RawDb raw(Narrow("v1.db"));
    EXPECT_EQ(raw.Integer("PRAGMA user_version"), 2);
  }
  auto original = Load(Path(), true);
  auto migrated = Load(Path("v1.db"), true);
  ASSERT_TRUE(original);
  ASSERT_TRUE(migrated);
  EXPECT_EQ(Describe(migrated.get(), facade.Types()), Describe(original.get(), facade.Types()));
  AddNote(migrated.get(), "after the migration");
  EXPECT_TRUE(Save(*migrated, Path("v1.db"))) << DeviceOf(*migrated).LastError();
}

TEST_F(StoreFile, NewerVersionsAndOtherFilesAreRefusedUntouched) {
  SaveSmallProject();
  {
    RawDb raw(Narrow());
    ASSERT_TRUE(raw.Exec("PRAGMA user_version = 99"));
  }
  {
    std::ofstream other(Narrow("notes.txt"), std::ios::binary);
    for (int i = 0; i < 200; ++i)
      other << "this is a text file, line " << i << "\n";
  }
  auto contents = [&](std::string const& name) {
    std::ifstream in(Narrow(name), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  };
  const std::string text = contents("notes.txt");

  GSqliteDevice newer;
  EXPECT_FALSE(newer.Open(Path()));
  EXPECT_NE(Lower(newer.LastError()).find("version"), std::string::npos) << newer.LastError();
  GSqliteDevice foreign;
  EXPECT_FALSE(foreign.Open(Path("notes.txt")));
  EXPECT_FALSE(foreign.LastError().empty());
  EXPECT_EQ(contents("notes.txt"), text);

  for (std::string name : {"project.db", "notes.txt"}) {
    SCOPED_TRACE(name);
    std::string error;
    EXPECT_FALSE(Load(Path(name), true, &error));
  }
  RawDb raw(Narrow());
  EXPECT_EQ(raw.Integer("PRAGMA user_version"), 99);
  EXPECT_EQ(contents("notes.txt"), text);
}

TEST_F(StoreFile, ForeignNamesInQueriesAreRefusedAndHarmless) {
  SaveSmallProject();
  GSqliteDevice device;
  ASSERT_TRUE(device.Open(Path())) << device.LastError();
  std::vector<CVariant> values;
  device.QueryColumn("EntityTable", {"ID", "Type"}, "PID", 0, values);
  ASSERT_EQ(values.size(), 2u);
  EXPECT_EQ(values[0].toInt64(), 1);
  EXPECT_EQ(values[1].toInt64(), 1);

  // Names of the schema work.
  ASSERT_TRUE(device.WriteData("ProjectTable", 77, "state")) << device.LastError();
  std::string state;
  ASSERT_TRUE(device.ReadData("ProjectTable", 77, state)) << device.LastError();
  EXPECT_EQ(state, "state");
  EXPECT_TRUE(device.DeleteRecords("ProjectTable", {77})) << device.LastError();
  EXPECT_FALSE(device.ReadData("ProjectTable", 77, state));

  const std::string good = "EntityTable";
  const std::string bad[] = {"NoSuchTable",
                             "EntityTable; DROP TABLE EntityTable",
                             "EntityTable\"; DROP TABLE EntityTable; --",
                             "ID\" FROM x --",
                             "'EntityTable'",
                             "",
                             "sqlite_master"};
  for (std::string const& name : bad) {
    SCOPED_TRACE(name);
    values.assign(3, CVariant());
    device.ClearError();
    device.QueryColumn(name, {"ID"}, "PID", 0, values);
    EXPECT_TRUE(values.empty());
    EXPECT_FALSE(device.LastError().empty());
    for (auto const& [columns, key] :
         {std::pair{std::vector<std::string>{name}, std::string("PID")},
          std::pair{std::vector<std::string>{"ID", name}, std::string("PID")},
          std::pair{std::vector<std::string>{"ID"}, name}}) {
      values.assign(3, CVariant());
      device.ClearError();
      device.QueryColumn(good, columns, key, 0, values);
      EXPECT_TRUE(values.empty());
      EXPECT_FALSE(device.LastError().empty());
    }
    std::string bytes = "kept";
    device.ClearError();
    EXPECT_FALSE(device.ReadData(name, 2, bytes));
    EXPECT_FALSE(device.LastError().empty());
    device.ClearError();
    EXPECT_FALSE(device.WriteData(name, 2, "x"));
    EXPECT_FALSE(device.LastError().empty());
    device.ClearError();
    EXPECT_FALSE(device.DeleteRecords(name, {2, 3}));
    EXPECT_FALSE(device.LastError().empty());
  }
  device.Close();

  RawDb raw(Narrow());
  EXPECT_EQ(raw.Integer("SELECT count(*) FROM EntityTable"), 5);
  auto loaded = Load(true);
  ASSERT_TRUE(loaded);
  EXPECT_EQ(NoteOf(loaded->GetAllChild()[1]->GetAllChild()[0])->text, "b1");
}

// WriteData replaces the data of an existing entity row, whose other columns
// must not be null.
TEST_F(StoreFile, WriteDataReplacesTheDataOfAnEntityRow) {
  SaveSmallProject();
  {
    GSqliteDevice device;
    ASSERT_TRUE(device.Open(Path())) << device.LastError();
    EXPECT_TRUE(device.WriteData("EntityTable", 4, ArchivedNote("rewritten", 4)))
        << device.LastError();
  }
  auto loaded = Load(true);
  ASSERT_TRUE(loaded);
  EXPECT_EQ(NoteOf(loaded->GetAllChild()[1]->GetAllChild()[0])->text, "rewritten");
}

} // namespace
} // namespace zrn::test
