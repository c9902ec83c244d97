#include "Store/SqliteSchema.h"

#include <zrn/Version.h>

#include "Store/SchemaSteps.h"

namespace zrn::detail {
namespace {

// Version 1: the entity rows and the project's own state.
constexpr char kCreateVersion1[] =
    "CREATE TABLE EntityTable(ID INTEGER PRIMARY KEY, PID INTEGER NOT NULL,"
    " Seq INTEGER NOT NULL DEFAULT 0, Type INTEGER NOT NULL, Flags INTEGER NOT NULL DEFAULT 0,"
    " Data BLOB);"
    "CREATE TABLE ProjectTable(ID INTEGER PRIMARY KEY, Data BLOB);";

// Version 2: a small index that finds the root without a scan, and a table
// that says which program wrote the file.
constexpr char kVersion1To2[] =
    "CREATE INDEX EntityRoots ON EntityTable(PID) WHERE PID = 0;"
    "CREATE TABLE StoreInfo(Key TEXT PRIMARY KEY, Value TEXT);"
    "INSERT OR REPLACE INTO StoreInfo VALUES('writer', 'zrn " ZRN_VERSION_STRING "');";

std::string ErrorOf(sqlite3* db, char const* what) {
  return std::string(what) + ": " + sqlite3_errmsg(db);
}

// Runs `sql`; on failure the error text, else empty.
std::string Run(sqlite3* db, char const* sql, char const* what) {
  return sqlite3_exec(db, sql, nullptr, nullptr, nullptr) == SQLITE_OK ? std::string()
                                                                        : ErrorOf(db, what);
}

// Reads one integer that `sql` yields; false on an error.
bool ReadInt(sqlite3* db, char const* sql, long long& value) {
  sqlite3_stmt* stmt = nullptr;
  if (sqlite3_prepare_v2(db, sql, -1, &stmt, nullptr) != SQLITE_OK)
    return false;
  int step = sqlite3_step(stmt);
  value = step == SQLITE_ROW ? sqlite3_column_int64(stmt, 0) : 0;
  sqlite3_finalize(stmt);
  return step == SQLITE_ROW || step == SQLITE_DONE;
}

// With the write lock held: creates or migrates the tables.
std::string Upgrade(sqlite3* db, int target, int& version) {
  long long stored = 0;
  long long tables = 0;
  if (!ReadInt(db, "PRAGMA user_version", stored) ||
      !ReadInt(db, "SELECT count(*) FROM sqlite_schema WHERE type = 'table'", tables))
    return ErrorOf(db, "cannot read the schema");
  if (stored > target)
    return "the store was upgraded to schema version " + std::to_string(stored) +
           " while it was being opened";
  if (stored == 0 && tables != 0)
    return "the file is an SQLite database but not a project store (it has tables of its own)";
  auto const run = [db](char const* sql, char const* what) { return Run(db, sql, what); };
  if (std::string error = ApplySchemaSteps(stored, target, kCreateVersion1, MigrationStep, run);
      !error.empty())
    return error;
  std::string setVersion = "PRAGMA user_version = " + std::to_string(target);
  if (std::string error = Run(db, setVersion.c_str(), "cannot set the schema version");
      !error.empty())
    return error;
  version = target;
  return {};
}

} // namespace

char const* MigrationStep(int from) { return from == 1 ? kVersion1To2 : nullptr; }

std::string PrepareSchema(sqlite3* db, int target, int& version) {
  long long stored = 0;
  if (!ReadInt(db, "PRAGMA user_version", stored))
    return ErrorOf(db, "the file is not a project store");
  if (stored > target)
    return "the store has schema version " + std::to_string(stored) +
           ", newer than this library reads (up to " + std::to_string(target) +
           "): open it with a newer version of the program";
  version = static_cast<int>(stored);
  if (stored == target)
    return {};
  // Another process may be creating the same file: the write lock decides,
  // and the version is read again under it.
  if (std::string error = Run(db, "BEGIN IMMEDIATE", "cannot lock the store to set it up");
      !error.empty())
    return error;
  std::string error = Upgrade(db, target, version);
  if (!error.empty()) {
    sqlite3_exec(db, "ROLLBACK", nullptr, nullptr, nullptr);
    return error;
  }
  return Run(db, "COMMIT", "cannot commit the schema");
}

} // namespace zrn::detail
