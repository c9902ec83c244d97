// The device's operations on any table of the file, by name. Names come from
// callers, so each is checked against the file's schema and then quoted;
// nothing a caller gives is pasted into SQL as it stands.
#include <zrn/Property/Variant.h>
#include <zrn/Store/SqliteDevice.h>
#include <zrn/Text/StringTrans.h>

#include "Store/SqliteStatement.h"
#include "Store/SqlNames.h"

#include <algorithm>
#include <memory>

namespace zrn {

using detail::QuotedName;
using detail::SameNameNoCase;

using detail::CSqliteStatement;
using detail::CStatementUse;

namespace {

CVariant ValueOf(CSqliteStatement const& statement, int column) {
  switch (statement.Type(column)) {
  case SQLITE_INTEGER:
    return CVariant(statement.Int(column));
  case SQLITE_FLOAT:
    return CVariant(sqlite3_column_double(statement.Get(), column));
  case SQLITE_TEXT: {
    std::string text(statement.Bytes(column));
    std::unique_ptr<wchar_t[]> wide(GStdStringTrans::Utf8ToUnicode(text.c_str()));
    return CVariant(std::wstring(wide ? wide.get() : L""));
  }
  case SQLITE_BLOB:
    return CVariant(std::string(statement.Bytes(column)));
  default:
    return CVariant();
  }
}

} // namespace

bool GSqliteDevice::ValidName(std::string const& table, std::vector<std::string> const& columns) {
  if (!m_pDb)
    return SetError("the store is not open");
  CSqliteStatement info;
  if (info.Prepare(m_pDb, "SELECT name FROM pragma_table_info(?1) WHERE ?1 IN"
                          " (SELECT name FROM sqlite_schema WHERE type = 'table')") != SQLITE_OK)
    return Check(SQLITE_ERROR, "cannot read the schema");
  info.BindText(1, table);
  std::vector<std::string> known;
  while (info.Step() == SQLITE_ROW)
    known.emplace_back(info.Bytes(0));
  if (known.empty())
    return SetError("the store has no table named \"" + table + "\"");
  for (std::string const& column : columns)
    if (std::none_of(known.begin(), known.end(),
                     [&](std::string const& name) { return SameNameNoCase(name, column); }))
      return SetError("the table \"" + table + "\" has no column named \"" + column + "\"");
  return true;
}

void GSqliteDevice::QueryColumn(std::string const& table, std::vector<std::string> const& columns,
                                std::string const& keyColumn, long long keyValue,
                                std::vector<CVariant>& result) {
  result.clear();
  std::vector<std::string> names = columns;
  names.push_back(keyColumn);
  if (columns.empty()) {
    SetError("no column asked for");
    return;
  }
  if (!ValidName(table, names))
    return;
  std::string sql = "SELECT ";
  for (std::size_t i = 0; i < columns.size(); ++i)
    sql += (i ? ", " : "") + QuotedName(columns[i]);
  // The key is a number, so it can stand in the text: then the planner may use
  // a partial index such as the one on the root rows.
  sql += " FROM " + QuotedName(table) + " WHERE " + QuotedName(keyColumn) + " = " + std::to_string(keyValue);
  CSqliteStatement query;
  if (query.Prepare(m_pDb, sql) != SQLITE_OK)
    return void(Check(SQLITE_ERROR, "cannot query the store"));
  int step;
  while ((step = query.Step()) == SQLITE_ROW)
    for (int i = 0; i < query.ColumnCount(); ++i)
      result.push_back(ValueOf(query, i));
  Check(step, "cannot query the store");
}

bool GSqliteDevice::WriteData(std::string const& table, long long id, std::string const& bytes) {
  if (!ValidName(table, {"ID", "Data"}))
    return false;
  // An update first: a table whose other columns must not be null (the
  // entity rows) takes new data for an existing row, but no new row.
  for (char const* form : {"UPDATE %s SET Data = ?2 WHERE ID = ?1", "INSERT INTO %s(ID, Data) VALUES(?1, ?2)"}) {
    std::string sql = form;
    sql.replace(sql.find("%s"), 2, QuotedName(table));
    CSqliteStatement write;
    if (write.Prepare(m_pDb, sql) != SQLITE_OK)
      return Check(SQLITE_ERROR, "cannot write to the store");
    write.Bind(1, id);
    write.BindBlob(2, bytes.data(), static_cast<unsigned>(bytes.size()));
    if (!Check(write.Step(), "cannot write to the store"))
      return false;
    if (sqlite3_changes(m_pDb) > 0)
      return true;
  }
  return true;
}

bool GSqliteDevice::ReadData(std::string const& table, long long id, std::string& bytes) {
  if (!ValidName(table, {"ID", "Data"}))
    return false;
  CSqliteStatement read;
  if (read.Prepare(m_pDb, "SELECT Data FROM " + QuotedName(table) + " WHERE ID = ?") != SQLITE_OK)
    return Check(SQLITE_ERROR, "cannot read the store");
  read.Bind(1, id);
  int step = read.Step();
  if (step != SQLITE_ROW)
    return step == SQLITE_DONE ? false : Check(step, "cannot read the store");
  std::string_view data = read.Bytes(0);
  bytes.assign(data.data(), data.size());
  return true;
}

bool GSqliteDevice::DeleteRecords(std::string const& table, std::vector<long long> const& ids) {
  if (!ValidName(table, {"ID"}))
    return false;
  CSqliteStatement erase;
  if (erase.Prepare(m_pDb, "DELETE FROM " + QuotedName(table) + " WHERE ID = ?") != SQLITE_OK)
    return Check(SQLITE_ERROR, "cannot delete from the store");
  bool own = !InTransaction();
  if (own && !Exec("BEGIN IMMEDIATE"))
    return false;
  for (long long id : ids) {
    CStatementUse use(erase);
    erase.Bind(1, id);
    if (!Check(erase.Step(), "cannot delete from the store"))
      return own ? (Exec("ROLLBACK"), false) : false;
  }
  return own ? Exec("COMMIT") : true;
}

} // namespace zrn
