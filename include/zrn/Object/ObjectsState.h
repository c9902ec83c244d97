// The ids of stored objects deleted since the host last took the list.
//
// Every database device carries one; deleting a stored entity appends its id
// so that the host can remove the record at the next save. Unlike the rest of
// the library, this class lives in the global namespace.
#ifndef ZRN_OBJECT_OBJECTSSTATE_H
#define ZRN_OBJECT_OBJECTSSTATE_H

#include <zrn/Export.h>

#include <vector>

/// The deleted-objects list: ids in the order they were registered.
/// Duplicates are kept, because whether an id was already removed from the
/// store is the host's business. A plain value; no locking.
class ZRN_API GObjectsState {
public:
  /// An empty list.
  GObjectsState();
  GObjectsState(GObjectsState const& other);
  GObjectsState& operator=(GObjectsState const& other);
  ~GObjectsState();

  /// Appends `id`, without checking for duplicates.
  void RegisterDeleteObject(long long id);
  /// Replaces the contents of `out` with a copy of the list; the list itself
  /// is unchanged.
  void GetDeleteList(std::vector<long long>& out) const;
  /// Empties the list.
  void ClearAllList();

private:
  std::vector<long long> m_vecDeleteObjects;
};

#endif // ZRN_OBJECT_OBJECTSSTATE_H
