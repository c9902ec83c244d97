// Connecting, transactions, errors and the remembered revisions of the
// server store.
#include <zrn/Store/PostgresDevice.h>
#include <zrn/Text/StringTrans.h>

#include "Store/PostgresParts.h"

#include <cstdlib>
#include <memory>

namespace zrn {

using detail::CPgResult;

namespace {

std::string Utf8(std::wstring const& text) {
  std::unique_ptr<char[]> utf8(GStdStringTrans::UnicodeToUtf8(text.c_str()));
  return utf8 ? std::string(utf8.get()) : std::string();
}

// A server that does not answer would otherwise keep Open waiting for as
// long as the network does (minutes). The connection string's own
// connect_timeout, expanded after this default, wins over it, and so does
// the environment's.
PGconn* ConnectWithTimeout(std::string const& connection, int seconds) {
  if (seconds <= 0 || std::getenv("PGCONNECT_TIMEOUT"))
    return PQconnectdb(connection.c_str());
  std::string const timeout = std::to_string(seconds);
  char const* const keywords[] = {"connect_timeout", "dbname", nullptr};
  char const* const values[] = {timeout.c_str(), connection.c_str(), nullptr};
  return PQconnectdbParams(keywords, values, 1);
}

// The store's statements, prepared on every connection: name, SQL, parameter
// types.
struct SStatement {
  char const* name;
  char const* sql;
  int count;
  Oid types[8];
};

using detail::kByteaOid;
using detail::kInt4Oid;
using detail::kInt8Oid;

// A row's revision is checked with `Rev = $n` when the device remembers one;
// a NULL there (a row it never saw) skips the check.
SStatement const kStatements[] = {
    {"zrn_insert",
     "INSERT INTO EntityTable(ID, PID, Seq, Type, Flags, Data, Rev) VALUES($1, $2, $3, $4, $5, $6, "
     "$7)",
     7,
     {kInt8Oid, kInt8Oid, kInt8Oid, kInt4Oid, kInt4Oid, kByteaOid, kInt8Oid}},
    {"zrn_update",
     "UPDATE EntityTable SET PID = $2, Seq = $3, Type = $4, Flags = $5, Data = $6, Rev = $7"
     " WHERE ID = $1 AND ($8::int8 IS NULL OR Rev = $8)",
     8,
     {kInt8Oid, kInt8Oid, kInt8Oid, kInt4Oid, kInt4Oid, kByteaOid, kInt8Oid, kInt8Oid}},
    {"zrn_order",
     "UPDATE EntityTable SET Seq = $2, Rev = $3 WHERE ID = $1 AND ($4::int8 IS NULL OR Rev = $4)",
     4,
     {kInt8Oid, kInt8Oid, kInt8Oid, kInt8Oid}},
    {"zrn_data",
     "UPDATE EntityTable SET Data = $2, Rev = $3 WHERE ID = $1 AND ($4::int8 IS NULL OR Rev = $4)",
     4,
     {kInt8Oid, kByteaOid, kInt8Oid, kInt8Oid}},
    {"zrn_delete",
     "DELETE FROM EntityTable WHERE ID = $1 AND ($2::int8 IS NULL OR Rev = $2)",
     2,
     {kInt8Oid, kInt8Oid}},
    {"zrn_read_data", "SELECT Data FROM EntityTable WHERE ID = $1", 1, {kInt8Oid}},
    {"zrn_read_project", "SELECT Data FROM ProjectTable WHERE ID = $1", 1, {kInt8Oid}},
    {"zrn_lock_project", "SELECT Data FROM ProjectTable WHERE ID = $1 FOR UPDATE", 1, {kInt8Oid}},
    {"zrn_write_project",
     "INSERT INTO ProjectTable(ID, Data) VALUES($1, $2) ON CONFLICT (ID) DO UPDATE SET Data = "
     "excluded.Data",
     2,
     {kInt8Oid, kByteaOid}},
    {"zrn_txid", "SELECT txid_current()", 0, {}},
    {"zrn_count", "SELECT count(*) FROM EntityTable", 0, {}},
};

std::string PrepareStatements(PGconn* conn) {
  for (SStatement const& statement : kStatements) {
    CPgResult result(
        PQprepare(conn, statement.name, statement.sql, statement.count, statement.types));
    if (PQresultStatus(result.get()) != PGRES_COMMAND_OK)
      return std::string("cannot prepare \"") + statement.sql +
             "\": " + detail::ErrorText(conn, result.get());
  }
  return {};
}

void IgnoreNotice(void*, char const*) {}

} // namespace

GPostgresDevice::GPostgresDevice()
    : m_spill(std::make_unique<SwapSpill>()), m_revs(std::make_unique<detail::CRevisionIndex>()) {}

GPostgresDevice::~GPostgresDevice() { Close(); }

bool GPostgresDevice::Open(std::wstring const& connection) {
  std::string utf8 = Utf8(connection);
  if (!m_strUrl.empty() && utf8 == m_strUrl) {
    if (Healthy())
      return true;
    // The same store: what the device remembers of it still holds, also
    // when this attempt fails and a later one gets through.
    if (m_bInTransaction)
      EndTransaction(false);
    Disconnect();
    ClearError();
    return Connect(utf8);
  }
  if (m_pConn && !m_bInTransaction && Healthy()) {
    // A "save as": the previous store stays at hand for swapped-out data.
    if (m_pOrigin)
      PQfinish(m_pOrigin);
    m_pOrigin = std::exchange(m_pConn, nullptr);
  }
  Disconnect();
  m_strUrl.clear();
  m_strShownUrl.clear();
  auto swaps = std::move(SwapIds());
  ResetBookkeeping();
  SwapIds() = std::move(swaps);
  m_revs->Clear();
  ClearError();
  if (!utf8.empty() && Connect(utf8))
    return true;
  if (m_pOrigin)
    PQfinish(std::exchange(m_pOrigin, nullptr));
  m_strUrl.clear();
  return utf8.empty()
             ? Fail("cannot open the store: the connection string is empty or not valid text")
             : false;
}

bool GPostgresDevice::Connect(std::string const& connection) {
  std::string const shown = detail::HidePassword(connection);
  // Kept on failure, so that the next Open of the same store reconnects.
  m_strUrl = connection;
  m_strShownUrl = shown;
  m_pConn = ConnectWithTimeout(connection, m_nConnectTimeout);
  if (!m_pConn || PQstatus(m_pConn) != CONNECTION_OK) {
    std::string why = m_pConn ? detail::ErrorText(m_pConn, nullptr) : "out of memory";
    Disconnect();
    return Fail("cannot connect to the store at " + shown + ": " + why);
  }
  PQsetNoticeProcessor(m_pConn, IgnoreNotice, nullptr);
  std::string error = detail::PreparePgSchema(m_pConn, kSchemaVersion, m_nSchemaVersion);
  if (error.empty())
    error = PrepareStatements(m_pConn);
  if (!error.empty()) {
    Disconnect();
    return Fail("cannot open the store at " + shown + ": " + error);
  }
  m_pipeline = std::make_unique<Pipeline>(m_pConn);
  return true;
}

void GPostgresDevice::Disconnect() {
  m_pipeline.reset();
  if (m_pConn)
    PQfinish(m_pConn);
  m_pConn = nullptr;
  m_nSchemaVersion = 0;
}

bool GPostgresDevice::Healthy() {
  if (!m_pConn || PQstatus(m_pConn) != CONNECTION_OK)
    return false;
  if (m_bInTransaction)
    return true;
  // libpq learns of a server that went away only by talking to it.
  CPgResult probe(PQexec(m_pConn, ""));
  return PQresultStatus(probe.get()) == PGRES_EMPTY_QUERY;
}

void GPostgresDevice::Close() {
  if (m_bInTransaction) {
    if (m_pConn && PQstatus(m_pConn) == CONNECTION_OK)
      CPgResult(PQexec(m_pConn, "ROLLBACK"));
    EndTransaction(false);
  }
  Disconnect();
  if (m_pOrigin)
    PQfinish(std::exchange(m_pOrigin, nullptr));
  m_strUrl.clear();
  m_strShownUrl.clear();
  m_revs->Clear();
  if (m_spill)
    m_spill->Clear();
  ResetBookkeeping();
}

bool GPostgresDevice::IsOpen() const { return m_pConn != nullptr; }

bool GPostgresDevice::InTransaction() const { return m_bInTransaction; }

void GPostgresDevice::BeginAccess() {
  if (!m_pConn || m_bInTransaction)
    return;
  // A load reads the rows and the project's state from one snapshot, so that
  // saves committed meanwhile cannot tear the tree.
  if (Exec(GetDeviceContext().loading ? "BEGIN ISOLATION LEVEL REPEATABLE READ" : "BEGIN"))
    m_bInTransaction = true;
}

void GPostgresDevice::EndAccess() {
  if (m_bInTransaction && !CommitTransaction() && m_bInTransaction)
    RollbackTransaction();
}

bool GPostgresDevice::BeginTransaction() {
  if (!NeedOpen())
    return false;
  if (m_bInTransaction)
    return Fail("a transaction is open already");
  return Exec("BEGIN") && (m_bInTransaction = true);
}

bool GPostgresDevice::CommitTransaction() {
  if (!m_bInTransaction || !m_pConn)
    return Fail("there is no transaction to commit");
  if (!Flush()) {
    if (m_bInTransaction) // a lost connection has ended it already
      RollbackTransaction();
    return false;
  }
  CPgResult result(PQexec(m_pConn, "COMMIT"));
  bool const committed = PQresultStatus(result.get()) == PGRES_COMMAND_OK &&
                         std::string_view(PQcmdStatus(result.get())) == "COMMIT";
  if (committed) {
    EndTransaction(true);
    return true;
  }
  std::string_view state = detail::ErrorState(result.get());
  if (PQstatus(m_pConn) == CONNECTION_OK)
    EndTransaction(false);
  if (state == "23503")
    return Fail("the tree was changed by another process since it was loaded (an entity was "
                "deleted while another process gave it children): reload and retry (" +
                    detail::ErrorText(m_pConn, result.get()) + ")",
                true);
  if (state == "40001" || state == "40P01")
    return Fail("entities were changed by another process at the same time: reload and retry",
                true);
  if (PQresultStatus(result.get()) == PGRES_COMMAND_OK)
    return Fail("the transaction had failed and was rolled back");
  return LostOrFail("cannot commit the save");
}

bool GPostgresDevice::RollbackTransaction() {
  if (!m_bInTransaction)
    return Fail("there is no transaction to roll back");
  if (m_pipeline)
    m_pipeline->Drain();
  bool const ok = Exec("ROLLBACK");
  EndTransaction(false);
  return ok;
}

void GPostgresDevice::EndTransaction(bool committed) {
  if (committed)
    m_revs->Commit();
  else
    m_revs->Rollback();
  m_bInTransaction = false;
  m_nTxRev = 0;
}

void GPostgresDevice::SetSynced(void const* tree) {
  GEntityStoreDevice::SetSynced(tree);
  if (m_pOrigin)
    PQfinish(std::exchange(m_pOrigin, nullptr));
  if (SwapIds().empty() && m_spill)
    m_spill->Clear();
}

bool GPostgresDevice::Exec(char const* sql) {
  if (!m_pConn)
    return Fail("the store is not open");
  CPgResult result(PQexec(m_pConn, sql));
  ExecStatusType status = PQresultStatus(result.get());
  if (status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK)
    return true;
  return LostOrFail(std::string(sql) + ": " + detail::ErrorText(m_pConn, result.get()));
}

bool GPostgresDevice::Fail(std::string text, bool conflict) {
  m_bConflict = conflict;
  return SetError(std::move(text));
}

bool GPostgresDevice::LostOrFail(std::string const& what) {
  if (!m_pConn || PQstatus(m_pConn) != CONNECTION_BAD)
    return Fail(what);
  // The server ended the transaction with the connection.
  if (m_bInTransaction)
    EndTransaction(false);
  return Fail("the connection to the store at " + m_strShownUrl +
              " was lost; nothing of the unfinished work was kept (" + what + ")");
}

bool GPostgresDevice::NeedOpen() { return m_pConn || Fail("the store is not open"); }

} // namespace zrn
