#include <zrn/Store/SqliteDevice.h>
#include <zrn/Text/StringTrans.h>

#include "Store/SqliteSchema.h"
#include "Store/SqliteStatement.h"

#include <memory>

namespace zrn {

using detail::CSqliteStatement;
using detail::CStatementUse;

/// The statements of the entity rows, prepared once per opened file.
class GSqliteDevice::Statements {
public:
  CSqliteStatement writeRow, writeOrder, deleteRow, readRows, readRowsWithData, readData,
      writeProject, readProject, writeSwap, readSwap, readOriginData;

  /// Empty on success, else the failing statement's error.
  std::string Prepare(sqlite3* db) {
    struct Item {
      CSqliteStatement& statement;
      char const* sql;
    } const items[] = {
        {writeRow, "INSERT INTO EntityTable(ID, PID, Seq, Type, Flags, Data) VALUES(?, ?, ?, ?, ?, ?)"
                   " ON CONFLICT(ID) DO UPDATE SET PID = excluded.PID, Seq = excluded.Seq,"
                   " Type = excluded.Type, Flags = excluded.Flags, Data = excluded.Data"},
        {writeOrder, "UPDATE EntityTable SET Seq = ? WHERE ID = ?"},
        {deleteRow, "DELETE FROM EntityTable WHERE ID = ?"},
        {readRows, "SELECT ID, PID, Seq, Type, Flags FROM EntityTable ORDER BY ID"},
        {readRowsWithData, "SELECT ID, PID, Seq, Type, Flags, Data FROM EntityTable ORDER BY ID"},
        {readData, "SELECT Data FROM EntityTable WHERE ID = ?"},
        {writeProject, "INSERT OR REPLACE INTO ProjectTable(ID, Data) VALUES(?, ?)"},
        {readProject, "SELECT Data FROM ProjectTable WHERE ID = ?"},
        {writeSwap, "INSERT OR REPLACE INTO swap.SwapTable(ID, Data) VALUES(?, ?)"},
        {readSwap, "SELECT Data FROM swap.SwapTable WHERE ID = ?"},
    };
    for (Item const& item : items)
      if (item.statement.Prepare(db, item.sql) != SQLITE_OK)
        return std::string("cannot prepare \"") + item.sql + "\": " + sqlite3_errmsg(db);
    return {};
  }
};

namespace {

std::string Utf8Path(std::wstring const& path) {
  std::unique_ptr<char[]> utf8(GStdStringTrans::UnicodeToUtf8(path.c_str()));
  return utf8 ? std::string(utf8.get()) : std::string();
}

// Reads the one blob a keyed statement yields into `bytes`.
bool ReadOneBlob(CSqliteStatement& statement, long long id, std::string& bytes) {
  CStatementUse use(statement);
  statement.Bind(1, id);
  if (statement.Step() != SQLITE_ROW)
    return false;
  std::string_view data = statement.Bytes(0);
  bytes.assign(data.data(), data.size());
  return true;
}

} // namespace

GSqliteDevice::GSqliteDevice() = default;

GSqliteDevice::~GSqliteDevice() { Close(); }

bool GSqliteDevice::Open(std::wstring const& path) {
  std::string utf8 = Utf8Path(path);
  if (m_pDb && utf8 == m_strPath)
    return true;
  std::string previous = m_strOrigin.empty() ? m_strPath : m_strOrigin;
  std::vector<std::pair<long long, std::string>> swaps = TakeSwaps();
  Close();
  ClearError();
  if (utf8.empty())
    return SetError("cannot open the store: the path is empty or not valid text");
  if (!OpenFile(utf8))
    return false;
  return previous.empty() || KeepAtHand(previous, swaps);
}

bool GSqliteDevice::OpenFile(std::string const& utf8) {
  int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_URI;
  std::string error;
  if (sqlite3_open_v2(utf8.c_str(), &m_pDb, flags, nullptr) != SQLITE_OK)
    error = m_pDb ? sqlite3_errmsg(m_pDb) : "out of memory";
  if (error.empty()) {
    sqlite3_busy_timeout(m_pDb, m_nBusyTimeoutMs);
    error = detail::PrepareSchema(m_pDb, kSchemaVersion, m_nSchemaVersion);
  }
  if (error.empty() && !(Exec("PRAGMA journal_mode = WAL") && Exec("PRAGMA synchronous = NORMAL") &&
                         Exec("ATTACH '' AS swap") &&
                         Exec("CREATE TABLE swap.SwapTable(ID INTEGER PRIMARY KEY, Data BLOB)")))
    error = LastError();
  if (error.empty()) {
    m_statements = std::make_unique<Statements>();
    error = m_statements->Prepare(m_pDb);
  }
  if (!error.empty()) {
    Close();
    return SetError("cannot open the store " + utf8 + ": " + error);
  }
  m_strPath = utf8;
  return true;
}

std::vector<std::pair<long long, std::string>> GSqliteDevice::TakeSwaps() {
  std::vector<std::pair<long long, std::string>> swaps;
  std::string bytes;
  for (long long id : SwapIds())
    if (ReadSwapData(id, bytes))
      swaps.emplace_back(id, bytes);
  return swaps;
}

bool GSqliteDevice::KeepAtHand(std::string const& previous,
                               std::vector<std::pair<long long, std::string>> const& swaps) {
  CSqliteStatement attach;
  std::string uri = "file:";
  for (char c : previous) // the characters a URI path cannot hold as they are
    uri += c == '%' ? "%25" : c == '?' ? "%3f" : c == '#' ? "%23" : std::string(1, c);
  uri += "?mode=ro";
  if (attach.Prepare(m_pDb, "ATTACH ? AS origin") != SQLITE_OK)
    return Check(SQLITE_ERROR, "cannot keep the previous store at hand");
  attach.BindText(1, uri);
  if (!Check(attach.Step(), "cannot keep the previous store at hand") ||
      m_statements->readOriginData.Prepare(m_pDb, "SELECT Data FROM origin.EntityTable WHERE ID = ?") !=
          SQLITE_OK)
    return Check(SQLITE_ERROR, "cannot read the previous store");
  m_strOrigin = previous;
  for (auto const& [id, bytes] : swaps)
    if (WriteSwapData(id, bytes.data(), static_cast<unsigned>(bytes.size())))
      SwapIds().insert(id);
  return true;
}

bool GSqliteDevice::ClearRows() {
  return Exec("DELETE FROM EntityTable") && Exec("DELETE FROM ProjectTable");
}

void GSqliteDevice::SetSynced(void const* tree) {
  GEntityStoreDevice::SetSynced(tree);
  if (m_strOrigin.empty() || !m_pDb)
    return;
  m_statements->readOriginData = CSqliteStatement();
  sqlite3_exec(m_pDb, "DETACH origin", nullptr, nullptr, nullptr);
  m_strOrigin.clear();
}

void GSqliteDevice::Close() {
  m_statements.reset();
  if (m_pDb) {
    if (!sqlite3_get_autocommit(m_pDb))
      sqlite3_exec(m_pDb, "ROLLBACK", nullptr, nullptr, nullptr);
    sqlite3_close_v2(m_pDb);
  }
  m_pDb = nullptr;
  m_strPath.clear();
  m_strOrigin.clear();
  m_nSchemaVersion = 0;
  ResetBookkeeping();
}

bool GSqliteDevice::IsOpen() const { return m_pDb != nullptr; }

bool GSqliteDevice::InTransaction() const { return m_pDb && !sqlite3_get_autocommit(m_pDb); }

void GSqliteDevice::BeginAccess() {
  if (!m_pDb || InTransaction())
    return;
  // A save takes the write lock before it writes anything, so that it waits
  // (or fails) at the start rather than after half of its work.
  Exec(GetDeviceContext().saving ? "BEGIN IMMEDIATE" : "BEGIN");
}

void GSqliteDevice::EndAccess() {
  if (InTransaction() && !CommitTransaction())
    RollbackTransaction();
}

bool GSqliteDevice::BeginTransaction() {
  if (!m_pDb)
    return SetError("the store is not open");
  return Exec("BEGIN IMMEDIATE");
}

bool GSqliteDevice::CommitTransaction() {
  if (!InTransaction())
    return SetError("there is no transaction to commit");
  return Exec("COMMIT");
}

bool GSqliteDevice::RollbackTransaction() {
  if (!InTransaction())
    return SetError("there is no transaction to roll back");
  return Exec("ROLLBACK");
}

void GSqliteDevice::SetBusyTimeout(int milliseconds) {
  m_nBusyTimeoutMs = milliseconds < 0 ? 0 : milliseconds;
  if (m_pDb)
    sqlite3_busy_timeout(m_pDb, m_nBusyTimeoutMs);
}

bool GSqliteDevice::Exec(char const* sql) {
  if (!m_pDb)
    return SetError("the store is not open");
  return Check(sqlite3_exec(m_pDb, sql, nullptr, nullptr, nullptr), sql);
}

bool GSqliteDevice::Check(int code, char const* what) {
  if (code == SQLITE_OK || code == SQLITE_DONE || code == SQLITE_ROW)
    return true;
  std::string why = m_pDb ? sqlite3_errmsg(m_pDb) : sqlite3_errstr(code);
  if (code == SQLITE_BUSY || code == SQLITE_LOCKED)
    return SetError("the store " + m_strPath + " is locked by another writer (waited " +
                std::to_string(m_nBusyTimeoutMs) + " ms): " + what);
  return SetError(std::string(what) + ": " + why);
}

bool GSqliteDevice::WriteRow(SEntityRow const& row) {
  if (!m_statements)
    return SetError("the store is not open");
  CSqliteStatement& statement = m_statements->writeRow;
  CStatementUse use(statement);
  statement.Bind(1, row.id);
  statement.Bind(2, row.parentId);
  statement.Bind(3, row.order);
  statement.Bind(4, row.type);
  statement.Bind(5, row.flags);
  statement.BindBlob(6, row.data, row.size);
  return Check(statement.Step(), "cannot write an entity row");
}

bool GSqliteDevice::WriteOrder(long long id, long long order) {
  if (!m_statements)
    return SetError("the store is not open");
  CSqliteStatement& statement = m_statements->writeOrder;
  CStatementUse use(statement);
  statement.Bind(1, order);
  statement.Bind(2, id);
  return Check(statement.Step(), "cannot write an entity's order");
}

bool GSqliteDevice::DeleteRow(long long id) {
  if (!m_statements)
    return SetError("the store is not open");
  CSqliteStatement& statement = m_statements->deleteRow;
  CStatementUse use(statement);
  statement.Bind(1, id);
  return Check(statement.Step(), "cannot delete an entity row");
}

bool GSqliteDevice::ReadRows(bool withData, RowSink const& sink) {
  if (!m_statements)
    return SetError("the store is not open");
  CSqliteStatement& statement = withData ? m_statements->readRowsWithData : m_statements->readRows;
  CStatementUse use(statement);
  int step;
  while ((step = statement.Step()) == SQLITE_ROW) {
    SEntityRow row;
    row.id = statement.Int(0);
    row.parentId = statement.Int(1);
    row.order = statement.Int(2);
    row.type = static_cast<int>(statement.Int(3));
    row.flags = static_cast<int>(statement.Int(4));
    if (withData) {
      std::string_view data = statement.Bytes(5);
      row.data = data.data();
      row.size = static_cast<unsigned>(data.size());
    }
    if (!sink(row))
      return false;
  }
  return Check(step, "cannot read the entity rows");
}

long long GSqliteDevice::RowCount() {
  CSqliteStatement count;
  if (!m_pDb || count.Prepare(m_pDb, "SELECT count(*) FROM EntityTable") != SQLITE_OK ||
      count.Step() != SQLITE_ROW)
    return -1;
  return count.Int(0);
}

bool GSqliteDevice::ReadEntityData(long long id, std::string& bytes) {
  if (!m_statements)
    return false;
  return ReadOneBlob(m_statements->readData, id, bytes) ||
         (m_statements->readOriginData.IsPrepared() &&
          ReadOneBlob(m_statements->readOriginData, id, bytes));
}

bool GSqliteDevice::WriteKeyedBlob(CSqliteStatement& statement, long long id, char const* data,
                                   unsigned size, char const* what) {
  CStatementUse use(statement);
  statement.Bind(1, id);
  statement.BindBlob(2, data, size);
  return Check(statement.Step(), what);
}

bool GSqliteDevice::WriteProjectState(long long id, char const* data, unsigned size) {
  if (!m_statements)
    return SetError("the store is not open");
  return WriteKeyedBlob(m_statements->writeProject, id, data, size,
                        "cannot write the project's state");
}

bool GSqliteDevice::ReadProjectState(long long id, std::string& bytes) {
  return m_statements && ReadOneBlob(m_statements->readProject, id, bytes);
}

bool GSqliteDevice::WriteSwapData(long long id, char const* data, unsigned size) {
  if (!m_statements)
    return SetError("the store is not open");
  return WriteKeyedBlob(m_statements->writeSwap, id, data, size, "cannot keep swapped-out data");
}

bool GSqliteDevice::ReadSwapData(long long id, std::string& bytes) {
  return m_statements && ReadOneBlob(m_statements->readSwap, id, bytes);
}

} // namespace zrn
