// The device's operations on any table of the store's schema, by name. Names
// come from callers, so each is looked up in the catalogue and then quoted;
// nothing a caller gives is pasted into SQL as it stands.
#include <zrn/Property/Variant.h>
#include <zrn/Store/PostgresDevice.h>
#include <zrn/Text/StringTrans.h>

#include "Store/PostgresParts.h"
#include "Store/SqlNames.h"

#include <cstring>
#include <memory>

namespace zrn {

using detail::QuotedName;
using detail::SameNameNoCase;

using detail::CPgParams;
using detail::CPgResult;

namespace {

enum class EValueKind { kInteger, kReal, kBytes, kText };

EValueKind KindOf(std::string const& type) {
  if (type == "smallint" || type == "integer" || type == "bigint" || type == "boolean")
    return EValueKind::kInteger;
  if (type == "real" || type == "double precision" || type == "numeric")
    return EValueKind::kReal;
  return type == "bytea" ? EValueKind::kBytes : EValueKind::kText;
}

// The select expression that brings `column` in the binary form its kind is
// read in.
std::string Selected(std::string const& column, EValueKind kind) {
  switch (kind) {
  case EValueKind::kInteger:
    return column + "::int4::int8"; // through int4 so that booleans convert too
  case EValueKind::kReal:
    return column + "::float8";
  case EValueKind::kBytes:
    return column;
  default:
    return column + "::text";
  }
}

CVariant ValueOf(PGresult const* result, int row, int column, EValueKind kind) {
  if (PQgetisnull(result, row, column))
    return CVariant();
  std::string_view cell = detail::Cell(result, row, column);
  long long number = 0;
  switch (kind) {
  case EValueKind::kInteger:
    return detail::IntCell(result, row, column, number) ? CVariant(number) : CVariant();
  case EValueKind::kReal: {
    if (!detail::IntCell(result, row, column, number) || cell.size() != 8)
      return CVariant();
    double real = 0;
    std::memcpy(&real, &number, sizeof real);
    return CVariant(real);
  }
  case EValueKind::kBytes:
    return CVariant(std::string(cell));
  default: {
    std::string text(cell);
    std::unique_ptr<wchar_t[]> wide(GStdStringTrans::Utf8ToUnicode(text.c_str()));
    return CVariant(std::wstring(wide ? wide.get() : L""));
  }
  }
}

} // namespace

bool GPostgresDevice::IsEntityTable(std::string const& table) const {
  return SameNameNoCase(table, "EntityTable");
}

bool GPostgresDevice::CheckedTable(std::string const& table,
                                   std::vector<std::string> const& columns,
                                   std::string& quotedTable,
                                   std::vector<std::string>& quotedColumns,
                                   std::vector<std::string>& types) {
  if (!NeedOpen() || !Flush())
    return false;
  // An exact match of the table's name comes first, then one that differs in
  // case only (PostgreSQL folds unquoted names to lower case).
  char const* sql = "SELECT table_name, column_name, data_type FROM information_schema.columns"
                    " WHERE table_schema = current_schema() AND lower(table_name) = lower($1)"
                    " ORDER BY table_name <> $1, table_name, ordinal_position";
  char const* values[] = {table.c_str()};
  CPgResult result(PQexecParams(m_pConn, sql, 1, nullptr, values, nullptr, nullptr, 0));
  if (PQresultStatus(result.get()) != PGRES_TUPLES_OK)
    return LostOrFail("cannot read the schema: " + detail::ErrorText(m_pConn, result.get()));
  if (PQntuples(result.get()) == 0)
    return Fail("the store has no table named \"" + table + "\"");
  std::string const name = PQgetvalue(result.get(), 0, 0);
  quotedTable = QuotedName(name);
  quotedColumns.clear();
  types.clear();
  for (std::string const& column : columns) {
    int found = -1;
    for (int i = 0; i < PQntuples(result.get()) && name == PQgetvalue(result.get(), i, 0); ++i)
      if (SameNameNoCase(PQgetvalue(result.get(), i, 1), column)) {
        found = i;
        break;
      }
    if (found < 0)
      return Fail("the table \"" + table + "\" has no column named \"" + column + "\"");
    quotedColumns.push_back(QuotedName(PQgetvalue(result.get(), found, 1)));
    types.emplace_back(PQgetvalue(result.get(), found, 2));
  }
  return true;
}

void GPostgresDevice::QueryColumn(std::string const& table, std::vector<std::string> const& columns,
                                  std::string const& keyColumn, long long keyValue,
                                  std::vector<CVariant>& result) {
  result.clear();
  if (columns.empty()) {
    Fail("no column asked for");
    return;
  }
  std::vector<std::string> asked = columns;
  asked.push_back(keyColumn);
  std::string quotedTable;
  std::vector<std::string> names;
  std::vector<std::string> types;
  if (!CheckedTable(table, asked, quotedTable, names, types))
    return;
  std::vector<EValueKind> kinds;
  std::string sql = "SELECT ";
  for (std::size_t i = 0; i < columns.size(); ++i) {
    kinds.push_back(KindOf(types[i]));
    sql += (i ? ", " : "") + Selected(names[i], kinds.back());
  }
  // A number key is compared as a number, so that an index on it serves.
  bool const numericKey = KindOf(types.back()) == EValueKind::kInteger;
  sql += " FROM " + quotedTable + " WHERE " + names.back() +
         (numericKey ? " = $1" : "::text = $1::int8::text");
  CPgParams params;
  params.Int8(keyValue);
  Oid const keyType = detail::kInt8Oid;
  CPgResult rows(PQexecParams(m_pConn, sql.c_str(), 1, &keyType, params.Values(), params.Lengths(),
                              params.Formats(), 1));
  if (PQresultStatus(rows.get()) != PGRES_TUPLES_OK) {
    LostOrFail("cannot query the store: " + detail::ErrorText(m_pConn, rows.get()));
    return;
  }
  for (int row = 0; row < PQntuples(rows.get()); ++row)
    for (std::size_t i = 0; i < kinds.size(); ++i)
      result.push_back(ValueOf(rows.get(), row, static_cast<int>(i), kinds[i]));
}

bool GPostgresDevice::WriteData(std::string const& table, long long id, std::string const& bytes) {
  if (IsEntityTable(table)) {
    long long const known = m_revs->Find(id);
    if (known == detail::CRevisionIndex::kNone)
      return NeedOpen() &&
             Fail("entity " + std::to_string(id) + " has no row that this device loaded or saved");
    bool const own = !m_bInTransaction;
    if (own && !BeginTransaction())
      return false;
    CPgParams params;
    bool ok = TransactionRev();
    if (ok) {
      params.Int8(id).Bytes(bytes.data(), bytes.size()).Int8(m_nTxRev).Int8(known);
      ok = Send("zrn_data", params, id, Pipeline::kChecked) &&
           (m_revs->Remember(id, m_nTxRev), Flush());
    }
    if (own)
      return ok ? CommitTransaction() : (m_bInTransaction && RollbackTransaction(), false);
    return ok;
  }
  std::string quotedTable;
  std::vector<std::string> names;
  std::vector<std::string> types;
  if (!CheckedTable(table, {"ID", "Data"}, quotedTable, names, types))
    return false;
  // An update first: a table whose other columns must not be null takes new
  // data for an existing row, and a table without a unique ID still gets one
  // row per id.
  std::string const update =
      "UPDATE " + quotedTable + " SET " + names[1] + " = $2 WHERE " + names[0] + " = $1";
  std::string const insert =
      "INSERT INTO " + quotedTable + "(" + names[0] + ", " + names[1] + ") VALUES($1, $2)";
  CPgParams params;
  params.Int8(id).Bytes(bytes.data(), bytes.size());
  Oid const paramTypes[] = {detail::kInt8Oid, detail::kByteaOid};
  for (std::string const* sql : {&update, &insert}) {
    CPgResult result(PQexecParams(m_pConn, sql->c_str(), 2, paramTypes, params.Values(),
                                  params.Lengths(), params.Formats(), 1));
    if (PQresultStatus(result.get()) != PGRES_COMMAND_OK)
      return LostOrFail("cannot write to the store: " + detail::ErrorText(m_pConn, result.get()));
    if (std::string_view(PQcmdTuples(result.get())) != "0")
      return true;
  }
  return true;
}

bool GPostgresDevice::ReadData(std::string const& table, long long id, std::string& bytes) {
  std::string quotedTable;
  std::vector<std::string> names;
  std::vector<std::string> types;
  if (!CheckedTable(table, {"ID", "Data"}, quotedTable, names, types))
    return false;
  std::string sql = "SELECT " + names[1] + " FROM " + quotedTable + " WHERE " + names[0] + " = $1";
  CPgParams params;
  params.Int8(id);
  Oid const keyType = detail::kInt8Oid;
  CPgResult result(PQexecParams(m_pConn, sql.c_str(), 1, &keyType, params.Values(),
                                params.Lengths(), params.Formats(), 1));
  if (PQresultStatus(result.get()) != PGRES_TUPLES_OK)
    return LostOrFail("cannot read the store: " + detail::ErrorText(m_pConn, result.get()));
  if (PQntuples(result.get()) != 1)
    return false;
  std::string_view data = detail::Cell(result.get(), 0, 0);
  bytes.assign(data.data(), data.size());
  return true;
}

bool GPostgresDevice::DeleteRecords(std::string const& table, std::vector<long long> const& ids) {
  std::string quotedTable;
  std::vector<std::string> names;
  std::vector<std::string> types;
  bool const entities = IsEntityTable(table);
  if (!entities && !CheckedTable(table, {"ID"}, quotedTable, names, types))
    return false;
  bool const own = !m_bInTransaction;
  if (own && !BeginTransaction())
    return false;
  bool ok = true;
  if (entities) {
    for (std::size_t i = 0; ok && i < ids.size(); ++i)
      ok = DeleteRow(ids[i]);
    ok = ok && Flush();
  } else {
    std::string sql = "DELETE FROM " + quotedTable + " WHERE " + names[0] + " = $1";
    Oid const keyType = detail::kInt8Oid;
    for (std::size_t i = 0; ok && i < ids.size(); ++i) {
      CPgParams params;
      params.Int8(ids[i]);
      CPgResult result(PQexecParams(m_pConn, sql.c_str(), 1, &keyType, params.Values(),
                                    params.Lengths(), params.Formats(), 1));
      ok = PQresultStatus(result.get()) == PGRES_COMMAND_OK ||
           LostOrFail("cannot delete from the store: " + detail::ErrorText(m_pConn, result.get()));
    }
  }
  if (own)
    return ok ? CommitTransaction() : (m_bInTransaction && RollbackTransaction(), false);
  return ok;
}

} // namespace zrn
