// A prepared SQLite statement that finalizes itself, with the few binding and
// reading calls the store needs.
#ifndef ZRN_SRC_STORE_SQLITESTATEMENT_H
#define ZRN_SRC_STORE_SQLITESTATEMENT_H

#include <sqlite3.h>

#include <string>
#include <string_view>

namespace zrn::detail {

/// Owns one prepared statement. Bindings are 1-based, columns 0-based, as in
/// SQLite. Not copyable; movable.
class CSqliteStatement {
public:
  CSqliteStatement() = default;
  CSqliteStatement(CSqliteStatement const&) = delete;
  CSqliteStatement& operator=(CSqliteStatement const&) = delete;
  CSqliteStatement(CSqliteStatement&& other) noexcept : m_pStmt(other.m_pStmt) {
    other.m_pStmt = nullptr;
  }
  CSqliteStatement& operator=(CSqliteStatement&& other) noexcept {
    std::swap(m_pStmt, other.m_pStmt);
    return *this;
  }
  ~CSqliteStatement() { sqlite3_finalize(m_pStmt); }

  /// Prepares `sql` on `db`; the SQLite result code.
  int Prepare(sqlite3* db, std::string_view sql) {
    sqlite3_finalize(m_pStmt);
    m_pStmt = nullptr;
    return sqlite3_prepare_v3(db, sql.data(), static_cast<int>(sql.size()),
                              SQLITE_PREPARE_PERSISTENT, &m_pStmt, nullptr);
  }
  bool IsPrepared() const { return m_pStmt != nullptr; }

  void Bind(int index, long long value) { sqlite3_bind_int64(m_pStmt, index, value); }
  /// Binds `size` bytes that stay valid until the statement is stepped.
  void BindBlob(int index, char const* data, unsigned size) {
    sqlite3_bind_blob(m_pStmt, index, size ? data : "", static_cast<int>(size), SQLITE_STATIC);
  }
  void BindText(int index, std::string_view text) {
    sqlite3_bind_text(m_pStmt, index, text.data(), static_cast<int>(text.size()),
                      SQLITE_TRANSIENT);
  }

  /// SQLITE_ROW, SQLITE_DONE or an error code.
  int Step() { return sqlite3_step(m_pStmt); }
  /// Makes the statement ready to run again and drops the bindings' data.
  void Reset() {
    sqlite3_reset(m_pStmt);
    sqlite3_clear_bindings(m_pStmt);
  }

  long long Int(int column) const { return sqlite3_column_int64(m_pStmt, column); }
  /// The blob or text of `column`; valid until the next Step or Reset.
  std::string_view Bytes(int column) const {
    auto const* data = static_cast<char const*>(sqlite3_column_blob(m_pStmt, column));
    int size = sqlite3_column_bytes(m_pStmt, column);
    return data ? std::string_view(data, static_cast<std::size_t>(size)) : std::string_view();
  }
  int Type(int column) const { return sqlite3_column_type(m_pStmt, column); }
  int ColumnCount() const { return sqlite3_column_count(m_pStmt); }
  sqlite3_stmt* Get() const { return m_pStmt; }

private:
  sqlite3_stmt* m_pStmt = nullptr;
};

/// Resets a statement when the scope ends, so that every early return leaves
/// it ready for the next use and releases its read lock.
class CStatementUse {
public:
  explicit CStatementUse(CSqliteStatement& statement) : m_statement(statement) {}
  CStatementUse(CStatementUse const&) = delete;
  CStatementUse& operator=(CStatementUse const&) = delete;
  ~CStatementUse() { m_statement.Reset(); }

private:
  CSqliteStatement& m_statement;
};

} // namespace zrn::detail

#endif // ZRN_SRC_STORE_SQLITESTATEMENT_H
