// The embedded project store: one SQLite database file per project.
#ifndef ZRN_STORE_SQLITEDEVICE_H
#define ZRN_STORE_SQLITEDEVICE_H

#include <zrn/Store/EntityStoreDevice.h>
#include <zrn/Store/StoreExport.h>

#include <memory>
#include <string>
#include <vector>

struct sqlite3;

namespace zrn {
namespace detail {
class CSqliteStatement;
}

/// A project store in one SQLite file.
///
/// Open creates the file and its tables when they are missing, migrates a
/// file of an older schema version and refuses one of a newer version. The
/// file is in write-ahead-log mode: a process killed at any point leaves the
/// store as its last committed save left it, and readers do not block the
/// writer. A second writer on the same file waits up to the busy timeout
/// (5 s by default) and then fails with an error saying the store is locked.
///
/// BeginAccess opens a transaction (taking the write lock at once while the
/// device's `saving` option is set) and EndAccess commits what is still open.
/// Table and column names given to QueryColumn, WriteData, ReadData and
/// DeleteRecords are checked against the file's schema before they are used.
///
/// Used by one thread at a time.
class ZRN_STORE_API GSqliteDevice : public GEntityStoreDevice {
public:
  /// The schema version this library writes.
  static constexpr int kSchemaVersion = 2;

  GSqliteDevice();
  ~GSqliteDevice() override;

  /// Opens or creates the store at `path` (UTF-8 on disk). Opening the path
  /// that is open already does nothing. False, with LastError() saying why,
  /// when the file cannot be opened, is no store, or has a newer schema.
  ///
  /// Opening another path while a store is open ("save as") closes it but
  /// keeps it at hand, read-only, together with the swapped-out data that was
  /// never saved: the next save writes the tree whole into the new store,
  /// taking the data of entities that are still swapped out from the previous
  /// one, and then lets the previous store go.
  bool Open(std::wstring const& path) override;
  /// Closes the store, abandoning an open transaction and any swapped-out
  /// data that was never saved.
  void Close() override;
  bool IsOpen() const override;
  void BeginAccess() override;
  void EndAccess() override;
  bool BeginTransaction() override;
  bool CommitTransaction() override;
  bool RollbackTransaction() override;
  /// Stores `bytes` in the "Data" column of row `id` of `table`, which needs
  /// columns "ID" and "Data".
  bool WriteData(std::string const& table, long long id, std::string const& bytes) override;
  bool ReadData(std::string const& table, long long id, std::string& bytes) override;
  bool DeleteRecords(std::string const& table, std::vector<long long> const& ids) override;
  /// Integers come back as 64-bit integers, reals as doubles, text as wide
  /// text and blobs as narrow strings of their bytes; SQL NULL as an empty
  /// variant. A table or column the schema does not have gives no values and
  /// an error.
  void QueryColumn(std::string const& table, std::vector<std::string> const& columns,
                   std::string const& keyColumn, long long keyValue,
                   std::vector<CVariant>& result) override;

  bool WriteRow(SEntityRow const& row) override;
  bool WriteOrder(long long id, long long order) override;
  bool DeleteRow(long long id) override;
  bool ReadRows(bool withData, RowSink const& sink) override;
  long long RowCount() override;
  bool ReadEntityData(long long id, std::string& bytes) override;
  bool WriteProjectState(long long id, char const* data, unsigned size) override;
  bool ReadProjectState(long long id, std::string& bytes) override;
  bool WriteSwapData(long long id, char const* data, unsigned size) override;
  bool ReadSwapData(long long id, std::string& bytes) override;
  bool InTransaction() const override;
  bool ClearRows() override;
  void SetSynced(void const* tree) override;

  /// How long a writer waits for another one's lock, in milliseconds.
  void SetBusyTimeout(int milliseconds);
  /// The open file's path (UTF-8); empty when closed.
  std::string const& Path() const { return m_strPath; }
  /// The schema version of the open file (kSchemaVersion once opened).
  int SchemaVersion() const { return m_nSchemaVersion; }
  /// The connection, for a host's own tables; null when closed. The device's
  /// transactions and statements stay the device's.
  sqlite3* Handle() const { return m_pDb; }

private:
  class Statements;

  bool Exec(char const* sql);
  bool Check(int code, char const* what);
  bool ValidName(std::string const& table, std::vector<std::string> const& columns);
  bool OpenFile(std::string const& utf8);
  bool WriteKeyedBlob(detail::CSqliteStatement& statement, long long id, char const* data,
                      unsigned size, char const* what);
  std::vector<std::pair<long long, std::string>> TakeSwaps();
  bool KeepAtHand(std::string const& previous,
                  std::vector<std::pair<long long, std::string>> const& swaps);

  sqlite3* m_pDb = nullptr;
  std::unique_ptr<Statements> m_statements;
  std::string m_strPath;
  // The store this one replaced by a "save as", attached as "origin" until
  // the tree has been saved whole; empty when none.
  std::string m_strOrigin;
  int m_nSchemaVersion = 0;
  int m_nBusyTimeoutMs = 5000;
};

} // namespace zrn

#endif // ZRN_STORE_SQLITEDEVICE_H
