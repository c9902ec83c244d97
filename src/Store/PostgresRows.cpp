// The entity rows of the server store: pipelined, revision-checked writes,
// and reads in binary form.
#include <zrn/Store/PostgresDevice.h>

#include "Store/EntityBlob.h"
#include "Store/PostgresParts.h"

namespace zrn {

using detail::CPgParams;
using detail::CPgResult;

namespace {

// Rows fetched per round trip while a tree is read.
constexpr char kFetch[] = "FETCH 4096 FROM zrn_rows";
// Rows built between two looks at the socket.
constexpr int kConsumeEvery = 256;

std::string Changed(long long id) {
  return "entity " + std::to_string(id) +
         " was changed by another process since it was loaded: reload and retry";
}

// Asks for the next page of the open cursor (in pipeline mode).
bool SendFetch(PGconn* conn) {
  return PQsendQueryParams(conn, kFetch, 0, nullptr, nullptr, nullptr, nullptr, 1) &&
         PQpipelineSync(conn);
}

// The page SendFetch asked for; null when the connection is gone.
CPgResult TakeFetch(PGconn* conn) {
  CPgResult page(PQgetResult(conn));
  if (page)
    CPgResult(PQgetResult(conn)); // the null after the answer
  if (PQstatus(conn) == CONNECTION_OK)
    CPgResult(PQgetResult(conn)); // the sync point
  return page;
}

} // namespace

bool GPostgresDevice::Pipeline::Send(char const* statement, CPgParams const& params, long long id,
                                     Kind kind) {
  if (PQpipelineStatus(m_conn) == PQ_PIPELINE_OFF && !PQenterPipelineMode(m_conn))
    return false;
  if (!PQsendQueryPrepared(m_conn, statement, params.Count(), params.Values(), params.Lengths(),
                           params.Formats(), 1))
    return false;
  m_items.push_back({id, kind});
  return true;
}

GPostgresDevice::Pipeline::Outcome GPostgresDevice::Pipeline::Drain() {
  Outcome outcome;
  if (PQpipelineStatus(m_conn) == PQ_PIPELINE_OFF)
    return outcome;
  std::size_t next = 0;
  if (PQpipelineSync(m_conn)) {
    // Each statement's answer is followed by a null; two nulls in a row mean
    // the connection has nothing more to say.
    for (int nulls = 0; nulls < 2;) {
      CPgResult result(PQgetResult(m_conn));
      if (!result) {
        nulls = PQstatus(m_conn) == CONNECTION_BAD ? 2 : nulls + 1;
        continue;
      }
      nulls = 0;
      if (PQresultStatus(result.get()) == PGRES_PIPELINE_SYNC)
        break;
      if (next < m_items.size())
        Judge(result.get(), m_items[next++], outcome);
    }
  }
  if (outcome.ok && next < m_items.size()) {
    outcome.ok = false;
    outcome.error = detail::ErrorText(m_conn, nullptr);
  }
  m_items.clear();
  PQexitPipelineMode(m_conn);
  return outcome;
}

void GPostgresDevice::Pipeline::Judge(PGresult const* result, Item item, Outcome& outcome) const {
  if (!outcome.ok)
    return; // the first failure is the one to report; the rest were skipped
  ExecStatusType const status = PQresultStatus(result);
  if (status == PGRES_COMMAND_OK) {
    if (item.kind == kChecked &&
        std::string_view(PQcmdTuples(const_cast<PGresult*>(result))) == "0")
      outcome = {false, true, Changed(item.id)};
    return;
  }
  std::string_view state = detail::ErrorState(result);
  if (item.kind == kInsert && state == "23505")
    outcome = {
        false, true,
        "entity " + std::to_string(item.id) +
            " was also added by another process since this tree was loaded: reload and retry"};
  else if (state == "40001" || state == "40P01")
    outcome = {false, true, Changed(item.id)};
  else
    outcome = {false, false,
               "cannot write entity " + std::to_string(item.id) + ": " +
                   detail::ErrorText(m_conn, result)};
}

bool GPostgresDevice::SwapSpill::Write(long long id, char const* data, unsigned size) {
  if (!m_file && !(m_file = std::tmpfile()))
    return false;
  if (std::fseek(m_file, 0, SEEK_END) != 0)
    return false;
  long const at = std::ftell(m_file);
  if (at < 0 || (size && std::fwrite(data, 1, size, m_file) != size))
    return false;
  m_where[id] = {at, size};
  return true;
}

bool GPostgresDevice::SwapSpill::Read(long long id, std::string& bytes) {
  auto found = m_where.find(id);
  if (found == m_where.end() || std::fflush(m_file) != 0 ||
      std::fseek(m_file, found->second.first, SEEK_SET) != 0)
    return false;
  bytes.resize(found->second.second);
  return std::fread(bytes.data(), 1, bytes.size(), m_file) == bytes.size();
}

void GPostgresDevice::SwapSpill::Clear() {
  if (m_file)
    std::fclose(m_file);
  m_file = nullptr;
  m_where.clear();
}

bool GPostgresDevice::NeedTransaction() {
  if (!NeedOpen())
    return false;
  return m_bInTransaction ||
         Fail("the store's rows are written inside a transaction (BeginAccess)");
}

bool GPostgresDevice::TransactionRev() {
  if (m_nTxRev)
    return true;
  if (!Flush())
    return false;
  CPgResult result(detail::ExecPrepared(m_pConn, "zrn_txid", CPgParams()));
  if (PQresultStatus(result.get()) != PGRES_TUPLES_OK || PQntuples(result.get()) != 1 ||
      !detail::IntCell(result.get(), 0, 0, m_nTxRev))
    return LostOrFail("cannot start writing: " + detail::ErrorText(m_pConn, result.get()));
  return true;
}

bool GPostgresDevice::Flush() {
  if (!m_pipeline || m_pipeline->Empty())
    return true;
  Pipeline::Outcome outcome = m_pipeline->Drain();
  if (outcome.ok)
    return true;
  return outcome.conflict ? Fail(std::move(outcome.error), true) : LostOrFail(outcome.error);
}

bool GPostgresDevice::Send(char const* statement, CPgParams const& params, long long id, int kind) {
  if (!m_pipeline->Send(statement, params, id, static_cast<Pipeline::Kind>(kind)))
    return LostOrFail("cannot send entity " + std::to_string(id) + ": " +
                      detail::ErrorText(m_pConn, nullptr));
  return !m_pipeline->Full() || Flush();
}

bool GPostgresDevice::WriteRow(SEntityRow const& row) {
  if (!NeedTransaction() || !TransactionRev())
    return false;
  CPgParams params;
  params.Int8(row.id).Int8(row.parentId).Int8(row.order).Int4(row.type).Int4(row.flags);
  params.Bytes(row.data, row.size).Int8(m_nTxRev);
  long long const known = m_revs->Find(row.id);
  // A row this device never saw is new: inserting it (not replacing) is what
  // notices another process that added a row with the same id.
  bool const sent = known == detail::CRevisionIndex::kNone
                        ? Send("zrn_insert", params, row.id, Pipeline::kInsert)
                        : Send("zrn_update", params.Int8(known), row.id, Pipeline::kChecked);
  if (sent)
    m_revs->Remember(row.id, m_nTxRev);
  return sent;
}

bool GPostgresDevice::WriteOrder(long long id, long long order) {
  if (!NeedTransaction() || !TransactionRev())
    return false;
  CPgParams params;
  params.Int8(id).Int8(order).Int8(m_nTxRev);
  long long const known = m_revs->Find(id);
  bool const sent = known == detail::CRevisionIndex::kNone
                        ? Send("zrn_order", params.Null(), id, Pipeline::kUnchecked)
                        : Send("zrn_order", params.Int8(known), id, Pipeline::kChecked);
  if (sent && known != detail::CRevisionIndex::kNone)
    m_revs->Remember(id, m_nTxRev);
  return sent;
}

bool GPostgresDevice::DeleteRow(long long id) {
  if (!NeedTransaction() || !TransactionRev())
    return false;
  CPgParams params;
  params.Int8(id);
  long long const known = m_revs->Find(id);
  bool const sent = known == detail::CRevisionIndex::kNone
                        ? Send("zrn_delete", params.Null(), id, Pipeline::kUnchecked)
                        : Send("zrn_delete", params.Int8(known), id, Pipeline::kChecked);
  if (sent)
    m_revs->Forget(id);
  return sent;
}

bool GPostgresDevice::ReadRows(bool withData, RowSink const& sink) {
  if (!NeedOpen() || !Flush())
    return false;
  // A cursor reads the rows from one snapshot in pages, so that memory does
  // not grow with the store.
  bool const own = !m_bInTransaction;
  if (own && !(Exec("BEGIN ISOLATION LEVEL REPEATABLE READ") && (m_bInTransaction = true)))
    return false;
  bool ok =
      Exec(withData ? "DECLARE zrn_rows NO SCROLL CURSOR FOR SELECT ID, PID, Seq, Type, Flags,"
                      " Rev, Data FROM EntityTable ORDER BY ID"
                    : "DECLARE zrn_rows NO SCROLL CURSOR FOR SELECT ID, PID, Seq, Type, Flags,"
                      " Rev FROM EntityTable ORDER BY ID");
  m_revs->Clear();
  // The next page is asked for before this one is handed on, so that the
  // server reads while the caller builds.
  ok = ok && PQenterPipelineMode(m_pConn) && SendFetch(m_pConn);
  for (bool more = ok; more;) {
    bool const asked = SendFetch(m_pConn);
    CPgResult page = TakeFetch(m_pConn);
    if (!asked || PQresultStatus(page.get()) != PGRES_TUPLES_OK) {
      ok = LostOrFail("cannot read the entity rows: " + detail::ErrorText(m_pConn, page.get()));
      more = asked; // the page asked for ahead is still due
      break;
    }
    int const count = PQntuples(page.get());
    for (int i = 0; ok && i < count; ++i) {
      // Taking in what has arrived of the next page frees the socket, so
      // that the server goes on sending while this page is built.
      if (i % kConsumeEvery == 0)
        PQconsumeInput(m_pConn);
      ok = ReadRow(page.get(), i, withData, sink);
    }
    more = ok && count > 0;
  }
  if (PQpipelineStatus(m_pConn) != PQ_PIPELINE_OFF) {
    TakeFetch(m_pConn); // the page asked for ahead
    PQexitPipelineMode(m_pConn);
  }
  if (m_bInTransaction && ok)
    ok = Exec("CLOSE zrn_rows");
  if (own && m_bInTransaction)
    ok = (ok ? CommitTransaction() : RollbackTransaction()) && ok;
  return ok;
}

long long GPostgresDevice::RowCount() {
  if (!m_pConn || !Flush())
    return -1;
  CPgResult result(detail::ExecPrepared(m_pConn, "zrn_count", CPgParams()));
  long long count = -1;
  if (PQresultStatus(result.get()) != PGRES_TUPLES_OK || PQntuples(result.get()) != 1 ||
      !detail::IntCell(result.get(), 0, 0, count))
    return -1;
  return count;
}

bool GPostgresDevice::ReadRow(PGresult const* page, int i, bool withData, RowSink const& sink) {
  SEntityRow row;
  long long type = 0;
  long long flags = 0;
  long long rev = 0;
  if (!detail::IntCell(page, i, 0, row.id) || !detail::IntCell(page, i, 1, row.parentId) ||
      !detail::IntCell(page, i, 2, row.order) || !detail::IntCell(page, i, 3, type) ||
      !detail::IntCell(page, i, 4, flags) || !detail::IntCell(page, i, 5, rev))
    return Fail("the entity rows of the store hold a value that is no number");
  row.type = static_cast<int>(type);
  row.flags = static_cast<int>(flags);
  if (withData) {
    std::string_view data = detail::Cell(page, i, 6);
    row.data = data.data();
    row.size = static_cast<unsigned>(data.size());
  }
  m_revs->Load(row.id, rev);
  return sink(row);
}

bool GPostgresDevice::ReadOne(char const* statement, long long id, std::string& bytes,
                              pg_conn* conn) {
  if (!NeedOpen() || !Flush())
    return false;
  CPgParams params;
  params.Int8(id);
  CPgResult result(detail::ExecPrepared(conn ? conn : m_pConn, statement, params));
  if (PQresultStatus(result.get()) != PGRES_TUPLES_OK)
    return conn ? false
                : LostOrFail("cannot read the store: " + detail::ErrorText(m_pConn, result.get()));
  if (PQntuples(result.get()) != 1)
    return false;
  std::string_view data = detail::Cell(result.get(), 0, 0);
  bytes.assign(data.data(), data.size());
  return true;
}

bool GPostgresDevice::ReadEntityData(long long id, std::string& bytes) {
  return ReadOne("zrn_read_data", id, bytes) ||
         (m_pOrigin && ReadOne("zrn_read_data", id, bytes, m_pOrigin));
}

bool GPostgresDevice::WriteProjectState(long long id, char const* data, unsigned size) {
  if (!NeedOpen() || !Flush())
    return false;
  // Processes that added entities each count ids on from what they loaded:
  // the larger counter is kept, so that no id is handed out twice after a
  // reload. The row lock keeps two saves from deciding at once.
  std::string stored;
  if (ReadOne("zrn_lock_project", id, stored) &&
      detail::CounterOf(stored) > detail::CounterOf(std::string_view(data, size)))
    return true;
  CPgParams params;
  params.Int8(id).Bytes(data, size);
  CPgResult result(detail::ExecPrepared(m_pConn, "zrn_write_project", params));
  if (PQresultStatus(result.get()) == PGRES_COMMAND_OK)
    return true;
  return LostOrFail("cannot write the project's state: " +
                    detail::ErrorText(m_pConn, result.get()));
}

bool GPostgresDevice::ReadProjectState(long long id, std::string& bytes) {
  return ReadOne("zrn_read_project", id, bytes);
}

bool GPostgresDevice::WriteSwapData(long long id, char const* data, unsigned size) {
  return m_spill->Write(id, data, size) || Fail("cannot keep swapped-out data of entity " +
                                                std::to_string(id) + " in a temporary file");
}

bool GPostgresDevice::ReadSwapData(long long id, std::string& bytes) {
  return m_spill->Read(id, bytes);
}

bool GPostgresDevice::ClearRows() {
  if (!NeedTransaction() || !Flush() || !Exec("DELETE FROM EntityTable") ||
      !Exec("DELETE FROM ProjectTable"))
    return false;
  m_revs->ForgetAll();
  return true;
}

} // namespace zrn
