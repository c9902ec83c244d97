// Creating, migrating and checking the tables of a SQLite project store.
#ifndef ZRN_SRC_STORE_SQLITESCHEMA_H
#define ZRN_SRC_STORE_SQLITESCHEMA_H

#include <sqlite3.h>

#include <string>

namespace zrn::detail {

/// Brings the open file `db` to schema version `target`: creates the tables
/// in an empty file, migrates an older version step by step, and refuses a
/// newer version or a database that is no project store. Returns the empty
/// text on success, else what went wrong; `version` is the file's version
/// afterwards.
std::string PrepareSchema(sqlite3* db, int target, int& version);

/// The SQL of the statements that move a file from version `from` to
/// `from + 1`; null when there is no such step.
char const* MigrationStep(int from);

} // namespace zrn::detail

#endif // ZRN_SRC_STORE_SQLITESCHEMA_H
