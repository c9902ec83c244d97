// A database device that stores entity trees as rows: the seam between the
// store facade and a particular database.
//
// The facade (GStoreFacade) decides what to write and when; a device of this
// kind only moves rows, blobs and transactions. Each database the library
// supports (SQLite embedded, a shared server) derives from it.
#ifndef ZRN_STORE_ENTITYSTOREDEVICE_H
#define ZRN_STORE_ENTITYSTOREDEVICE_H

#include <zrn/IO/DBDevice.h>
#include <zrn/Store/StoreExport.h>

#include <functional>
#include <string>
#include <unordered_set>

namespace zrn {

/// One entity as the store holds it. `data` points at the archived bytes of
/// the entity's impl object; they stay valid only during the call that
/// receives the row.
struct SEntityRow {
  /// The entity's object id, unique within its project.
  long long id = 0;
  /// The parent's object id; 0 for the project at the root.
  long long parentId = 0;
  /// Order among siblings: 0 for every child of a parent whose children are
  /// in increasing id order (the order AddChild gives), else 1, 2, 3... in
  /// child order. Loading sorts siblings by (order, id).
  long long order = 0;
  /// The registered type id of the entity's class (CEntityTypeRegistry).
  int type = 0;
  /// The entity's persistent flag bits: EGOBJECT_FLAG_MODIFIED, _SWAPPED and
  /// _STORED are about memory, so they are never stored.
  int flags = 0;
  /// The impl object's archived bytes; null with size 0 when not read.
  char const* data = nullptr;
  unsigned size = 0;
};

/// A GDBDevice that stores an entity tree as rows, one per entity.
///
/// Errors: every operation that can fail returns false and leaves a
/// description in LastError(), which also goes to the calling thread's error
/// code (err_failed). A device is used by one thread at a time.
class ZRN_STORE_API GEntityStoreDevice : public GDBDevice {
public:
  GEntityStoreDevice();
  GEntityStoreDevice(GEntityStoreDevice const&) = delete;
  GEntityStoreDevice& operator=(GEntityStoreDevice const&) = delete;
  ~GEntityStoreDevice() override;

  /// Called for every stored row by ReadRows; false stops the reading.
  using RowSink = std::function<bool(SEntityRow const& row)>;

  /// Inserts the row, or replaces the row with the same id. Inside a
  /// transaction.
  virtual bool WriteRow(SEntityRow const& row) = 0;
  /// Changes only the sibling order of the row `id`.
  virtual bool WriteOrder(long long id, long long order) = 0;
  /// Removes the row `id`, if there is one.
  virtual bool DeleteRow(long long id) = 0;
  /// Hands every row to `sink` in increasing id order, with the impl data
  /// when `withData` is true; false on a read error or when the sink stops.
  virtual bool ReadRows(bool withData, RowSink const& sink) = 0;
  /// The number of entity rows; -1 on a read error.
  virtual long long RowCount() = 0;
  /// Reads the impl data of the row `id` into `bytes`; false when there is
  /// no such row.
  virtual bool ReadEntityData(long long id, std::string& bytes) = 0;
  /// Stores the project's own archived state (its id counter) for `id`.
  virtual bool WriteProjectState(long long id, char const* data, unsigned size) = 0;
  /// Reads what WriteProjectState stored for `id`; false when nothing is.
  virtual bool ReadProjectState(long long id, std::string& bytes) = 0;

  /// Keeps the impl data of a swapped-out entity that differs from its row
  /// (or has none yet) until the next save. Such data lives outside the
  /// store's rows, so that the store keeps its last saved state until then,
  /// and is discarded when the device closes.
  virtual bool WriteSwapData(long long id, char const* data, unsigned size) = 0;
  /// Reads data kept by WriteSwapData; false when there is none.
  virtual bool ReadSwapData(long long id, std::string& bytes) = 0;

  /// True while a transaction is open.
  virtual bool InTransaction() const = 0;
  /// Removes every entity row and the project's state: the start of a save
  /// that writes a whole tree.
  virtual bool ClearRows() = 0;

  /// True when the rows of the open store are those of `tree` (a project it
  /// saved or loaded through this device), so that a save may write only
  /// what changed. Opening another store forgets it.
  bool IsSyncedWith(void const* tree) const { return tree && m_pSynced == tree; }
  /// Records that the store's rows are now those of `tree`. A device that
  /// kept a previous store at hand for a save to a new place lets it go.
  virtual void SetSynced(void const* tree) { m_pSynced = tree; }

  /// The last failure's description; empty when none happened since
  /// ClearError().
  std::string const& LastError() const { return m_strLastError; }
  void ClearError() { m_strLastError.clear(); }
  /// Records `text` as the last error and sets the calling thread's error
  /// code; returns false, so that callers can `return SetError(...)`.
  bool SetError(std::string text);

  /// The ids whose swapped-out data is kept by WriteSwapData (the facade's
  /// bookkeeping).
  std::unordered_set<long long>& SwapIds() { return m_swapIds; }
  /// The ids of parents whose children carry an explicit order (the facade's
  /// bookkeeping; filled when a tree is loaded).
  std::unordered_set<long long>& OrderedParents() { return m_orderedParents; }

protected:
  /// Forgets the bookkeeping of an opened store (on Close).
  void ResetBookkeeping();
  /// Forgets which tree the store's rows belong to (on opening another one).
  void ForgetSynced() { m_pSynced = nullptr; }

private:
  std::string m_strLastError;
  std::unordered_set<long long> m_swapIds;
  std::unordered_set<long long> m_orderedParents;
  void const* m_pSynced = nullptr;
};

} // namespace zrn

#endif // ZRN_STORE_ENTITYSTOREDEVICE_H
