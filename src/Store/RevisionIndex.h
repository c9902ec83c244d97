// The revision of every row a server-store device loaded or saved, by entity
// id, with what it takes to give the index back its state when a transaction
// rolls back.
#ifndef ZRN_SRC_STORE_REVISIONINDEX_H
#define ZRN_SRC_STORE_REVISIONINDEX_H

#include <cstddef>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

namespace zrn::detail {

/// A load hands rows over in id order, so they go into a sorted array: no
/// node, no hash and no rehash per row on the path every open takes. What a
/// transaction writes afterwards goes into a hash table laid over the array,
/// folded back into it when it grows large.
///
/// Revisions are the server's transaction ids, never negative. Used by one
/// thread at a time, like its device.
class CRevisionIndex {
public:
  /// What Find gives for an id with no revision.
  static constexpr long long kNone = -1;

  /// The revision of `id`; kNone when it has none.
  long long Find(long long id) const;

  /// Forgets every revision, outside the undo log (the device opened, closed
  /// or starts reading every row).
  void Clear() { m_state = State(); }
  /// Records a row read from the store, outside the undo log. Rows that come
  /// in increasing id order after Clear cost no hashing.
  void Load(long long id, long long rev);

  /// Records that this transaction wrote `id` at `rev`.
  void Remember(long long id, long long rev);
  /// Records that this transaction deleted the row of `id`.
  void Forget(long long id);
  /// Records that this transaction deleted every row.
  void ForgetAll();

  /// The transaction committed: its changes stay.
  void Commit();
  /// The transaction rolled back: the index is as it was before it.
  void Rollback();

private:
  using Entry = std::pair<long long, long long>;
  struct Undo {
    long long id;
    long long rev; // kNone: the id had no revision
  };
  struct State {
    std::vector<Entry> loaded;                        // sorted by id
    std::unordered_map<long long, long long> overlay; // kNone: forgotten
  };

  void Set(long long id, long long rev);
  void Fold();

  State m_state;
  std::vector<Undo> m_undo;
  // The state before ForgetAll, and how much of the undo log came before it.
  std::unique_ptr<State> m_beforeClear;
  std::size_t m_undoAtClear = 0;
};

} // namespace zrn::detail

#endif // ZRN_SRC_STORE_REVISIONINDEX_H
