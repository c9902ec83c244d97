// Creating and migrating the tables of a server store, and the text that
// messages show for a connection string.
#include <zrn/Version.h>

#include "Store/SchemaSteps.h"

#include "Store/PostgresWire.h"

#include <algorithm>
#include <cctype>

namespace zrn::detail {
namespace {

// Version 1. Each row's Rev is the id of the transaction that wrote it, so a
// row deleted and written again never takes back a revision someone
// remembers. ParentRef ties a row to its parent (the project's own row has
// none): a parent cannot be deleted while rows still name it, whichever
// process wrote them; the check waits for the commit, as saves delete parents
// before their children.
constexpr char kCreateVersion1[] =
    "CREATE TABLE EntityTable(ID BIGINT PRIMARY KEY, PID BIGINT NOT NULL,"
    " Seq BIGINT NOT NULL DEFAULT 0, Type INTEGER NOT NULL, Flags INTEGER NOT NULL DEFAULT 0,"
    " Data BYTEA, Rev BIGINT NOT NULL DEFAULT 0,"
    " ParentRef BIGINT GENERATED ALWAYS AS (NULLIF(PID, 0)) STORED"
    "   REFERENCES EntityTable(ID) DEFERRABLE INITIALLY DEFERRED);"
    "CREATE INDEX EntityRoots ON EntityTable(PID) WHERE PID = 0;"
    "CREATE INDEX EntityChildren ON EntityTable(ParentRef);"
    "CREATE TABLE ProjectTable(ID BIGINT PRIMARY KEY, Data BYTEA);"
    "CREATE TABLE StoreInfo(Key TEXT PRIMARY KEY, Value TEXT);"
    "INSERT INTO StoreInfo VALUES('writer', 'zrn " ZRN_VERSION_STRING "');";

// The statements that move a store from version `from` to `from + 1`; none
// yet.
char const* MigrationStep(int /*from*/) { return nullptr; }

// Runs `sql` (text, no parameters); the error text, else empty.
std::string Run(PGconn* conn, char const* sql, char const* what) {
  CPgResult result(PQexec(conn, sql));
  ExecStatusType status = PQresultStatus(result.get());
  if (status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK)
    return {};
  return std::string(what) + ": " + ErrorText(conn, result.get());
}

// Reads the store's version: 0 when it has no StoreInfo table (or no version
// row), -1 when the current schema holds an EntityTable of no store.
std::string ReadVersion(PGconn* conn, long long& version) {
  CPgResult tables(PQexec(conn, "SELECT to_regclass('storeinfo') IS NOT NULL,"
                                " to_regclass('entitytable') IS NOT NULL"));
  if (PQresultStatus(tables.get()) != PGRES_TUPLES_OK || PQntuples(tables.get()) != 1)
    return "cannot read the schema: " + ErrorText(conn, tables.get());
  bool const hasInfo = *PQgetvalue(tables.get(), 0, 0) == 't';
  bool const hasEntities = *PQgetvalue(tables.get(), 0, 1) == 't';
  version = 0;
  if (hasInfo) {
    CPgResult row(PQexec(conn, "SELECT Value FROM StoreInfo WHERE Key = 'version'"));
    if (PQresultStatus(row.get()) != PGRES_TUPLES_OK)
      return "cannot read the schema version: " + ErrorText(conn, row.get());
    if (PQntuples(row.get()) == 1)
      version = std::atoll(PQgetvalue(row.get(), 0, 0));
  }
  if (version == 0 && hasEntities)
    version = -1;
  return {};
}

std::string Refusal(long long stored, int target) {
  if (stored < 0)
    return "the schema has an EntityTable but no store version: it is not a project store";
  return "the store has schema version " + std::to_string(stored) +
         ", newer than this library reads (up to " + std::to_string(target) +
         "): open it with a newer version of the program";
}

// Inside the setup transaction, under the setup lock.
std::string Upgrade(PGconn* conn, int target, int& version) {
  long long stored = 0;
  if (std::string error = ReadVersion(conn, stored); !error.empty())
    return error;
  if (stored < 0 || stored > target)
    return Refusal(stored, target);
  auto const run = [conn](char const* sql, char const* what) { return Run(conn, sql, what); };
  if (std::string error = ApplySchemaSteps(stored, target, kCreateVersion1, MigrationStep, run);
      !error.empty())
    return error;
  std::string setVersion = "INSERT INTO StoreInfo VALUES('version', '" + std::to_string(target) +
                           "') ON CONFLICT (Key) DO UPDATE SET Value = excluded.Value";
  if (std::string error = Run(conn, setVersion.c_str(), "cannot set the schema version");
      !error.empty())
    return error;
  version = target;
  return {};
}

bool StartsWith(std::string const& text, char const* prefix) {
  std::size_t length = std::char_traits<char>::length(prefix);
  return text.size() >= length &&
         std::equal(prefix, prefix + length, text.begin(), [](char a, char b) {
           return a == std::tolower(static_cast<unsigned char>(b));
         });
}

std::string HideInUrl(std::string url) {
  std::size_t const start = url.find("://") + 3;
  std::size_t const end = std::min(url.find_first_of("/?", start), url.size());
  std::size_t const at = url.rfind('@', end);
  if (at != std::string::npos && at >= start) {
    std::size_t colon = url.find(':', start);
    if (colon < at)
      url.erase(colon, at - colon);
  }
  std::size_t const query = url.find('?', start);
  if (query == std::string::npos)
    return url;
  std::string kept;
  for (std::size_t from = query + 1; from <= url.size();) {
    std::size_t stop = std::min(url.find('&', from), url.size());
    std::string_view item(url.data() + from, stop - from);
    if (!item.empty() && item.substr(0, 9) != "password=") {
      if (!kept.empty())
        kept += '&';
      kept += item;
    }
    from = stop + 1;
  }
  url.erase(query);
  return kept.empty() ? url : url + "?" + kept;
}

std::string HideInKeywords(std::string const& connection) {
  PQconninfoOption* options = PQconninfoParse(connection.c_str(), nullptr);
  if (!options)
    return "(a connection string that cannot be read)";
  std::string shown;
  for (PQconninfoOption* option = options; option->keyword; ++option) {
    if (!option->val || std::string_view(option->keyword) == "password")
      continue;
    if (!shown.empty())
      shown += ' ';
    shown.append(option->keyword).append("=").append(option->val);
  }
  PQconninfoFree(options);
  return shown;
}

} // namespace

std::string HidePassword(std::string const& connection) {
  if (StartsWith(connection, "postgresql://") || StartsWith(connection, "postgres://"))
    return HideInUrl(connection);
  return HideInKeywords(connection);
}

std::string PreparePgSchema(PGconn* conn, int target, int& version) {
  long long stored = 0;
  if (std::string error = ReadVersion(conn, stored); !error.empty())
    return error;
  if (stored < 0 || stored > target)
    return Refusal(stored, target);
  version = static_cast<int>(stored);
  if (stored == target)
    return {};
  // Several processes may set up the same store at once: a lock taken inside
  // the transaction decides, and the version is read again under it.
  if (std::string error = Run(conn, "BEGIN; SELECT pg_advisory_xact_lock(7254101)",
                              "cannot lock the store to set it up");
      !error.empty()) {
    Run(conn, "ROLLBACK", "");
    return error;
  }
  std::string error = Upgrade(conn, target, version);
  if (!error.empty()) {
    Run(conn, "ROLLBACK", "");
    return error;
  }
  return Run(conn, "COMMIT", "cannot commit the schema");
}

} // namespace zrn::detail
