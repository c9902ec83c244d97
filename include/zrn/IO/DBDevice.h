// The connection to one project's store, which the host implements.
//
// The library keeps the device's option record and its list of deleted object
// ids, and calls four of its operations (Open, BeginAccess, EndAccess,
// QueryColumn) when a project is saved or loaded. The rest of the interface
// belongs to the host and its data I/O facade; the library never calls it.
#ifndef ZRN_IO_DBDEVICE_H
#define ZRN_IO_DBDEVICE_H

#include <zrn/Export.h>
#include <zrn/Object/ObjectsState.h>

#include <string>
#include <vector>

namespace zrn {

class CVariant;

/// A device's options. A plain value, copied member by member.
///
/// Only the options the library reads or writes are kept; options that only
/// a host interprets belong in the host's own device class.
struct ZRN_API IODeviceContext {
  /// All flags false, lazyModifiedMode 2.
  IODeviceContext();

  /// Sets lazyModifiedMode to 2 when it is 0 and leaves any other value, so
  /// that a mode the host chose on purpose survives.
  void SetNeedLazyCaculateModified();

  /// True while a project is being loaded: entities added get no new ids
  /// (they come from the store) and cannot be marked modified.
  bool loading;
  /// True while a project is being saved.
  bool saving;
  /// While true, deleting a stored entity is not recorded in the device's
  /// deleted-objects list.
  bool suppressDeleteLog;
  /// How the host computes modification state lazily; its meaning is the
  /// host's. 2 when constructed.
  int lazyModifiedMode;
};

/// A host's connection to the store of one project.
///
/// A project owns its device and deletes it. Every operation is implemented
/// by the host; the library calls only Open, BeginAccess, EndAccess and
/// QueryColumn. The other operations are offered so that a host's facade has
/// a common vocabulary for its devices; the library attaches no behaviour to
/// them. Used by one thread at a time.
class ZRN_API GDBDevice {
public:
  /// Default options and an empty deleted-objects list.
  GDBDevice();
  /// Copies the options and the deleted-objects list.
  GDBDevice(GDBDevice const& other);
  GDBDevice& operator=(GDBDevice const& other);
  virtual ~GDBDevice();

  /// Opens the store at `path`; false when it cannot be opened. Opening an
  /// already open device is up to the host.
  virtual bool Open(std::wstring const& path) = 0;
  /// Closes the store (not called by the library).
  virtual void Close() = 0;
  /// True while the store is open (not called by the library).
  virtual bool IsOpen() const = 0;
  /// Starts a batch of accesses: called before a project is loaded or saved.
  virtual void BeginAccess() = 0;
  /// Ends the batch started by BeginAccess.
  virtual void EndAccess() = 0;
  /// Starts a transaction; false on failure (not called by the library).
  virtual bool BeginTransaction() = 0;
  /// Commits the open transaction; false on failure (not called by the
  /// library).
  virtual bool CommitTransaction() = 0;
  /// Abandons the open transaction; false on failure (not called by the
  /// library).
  virtual bool RollbackTransaction() = 0;
  /// Stores `bytes` as the record `id` of `table`, replacing an existing one;
  /// false on failure (not called by the library).
  virtual bool WriteData(std::string const& table, long long id, std::string const& bytes) = 0;
  /// Reads the record `id` of `table` into `bytes`; false when there is none
  /// (not called by the library).
  virtual bool ReadData(std::string const& table, long long id, std::string& bytes) = 0;
  /// Removes the records with the given ids from `table`; false on failure
  /// (not called by the library).
  virtual bool DeleteRecords(std::string const& table, std::vector<long long> const& ids) = 0;
  /// Fills `result` with the values of `columns` of the rows of `table` whose
  /// `keyColumn` equals `keyValue`, row after row. No row leaves `result`
  /// empty. LoadProject asks table "EntityTable", columns { "ID" }, key
  /// column "PID", key 0 for the root's id.
  virtual void QueryColumn(std::string const& table, std::vector<std::string> const& columns,
                           std::string const& keyColumn, long long keyValue,
                           std::vector<CVariant>& result) = 0;

  IODeviceContext& GetDeviceContext() { return m_context; }
  IODeviceContext const& GetDeviceContext() const { return m_context; }
  /// The ids of stored entities deleted since the host last cleared the list.
  GObjectsState& GetObjectsState() { return m_objectsState; }

private:
  IODeviceContext m_context;
  GObjectsState m_objectsState;
};

} // namespace zrn

#endif // ZRN_IO_DBDEVICE_H
