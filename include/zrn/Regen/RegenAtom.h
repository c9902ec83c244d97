// The values a regeneration pass is driven by and reports through: an atom
// names one changed property of one object; a context collects the ids a
// pass deleted, regenerated and updated.
#ifndef ZRN_REGEN_REGENATOM_H
#define ZRN_REGEN_REGENATOM_H

#include <zrn/Export.h>

#include <set>
#include <string>

namespace zrn {

/// One changed property of one object: the object's id and the property's
/// id. A plain value type.
class ZRN_API GRegenAtom {
public:
  GRegenAtom(unsigned long long const& targetId, std::wstring const& propertyId)
      : m_nTargetId(targetId), m_strPropertyId(propertyId) {}

  /// The id of the object whose property changed.
  unsigned long long const& TargetId() const { return m_nTargetId; }
  /// The id of the property that changed.
  std::wstring const& PropertyId() const { return m_strPropertyId; }
  /// True when both the target ids and the property ids are equal.
  bool IsEqual(GRegenAtom const& other) const {
    return m_nTargetId == other.m_nTargetId && m_strPropertyId == other.m_strPropertyId;
  }

private:
  unsigned long long m_nTargetId;
  std::wstring m_strPropertyId;
};

/// What regeneration passes did, as three ascending id sets. Passes only add
/// to them, so a context reused for several passes accumulates. Ids marked in
/// ascending order are added in constant time.
class ZRN_API GRegenContext {
public:
  using IdSet = std::set<unsigned long long>;

  /// Records an id whose object was deleted.
  void MarkDelete(unsigned long long const& id) { m_setDeleted.insert(m_setDeleted.end(), id); }
  /// Records an id whose object had a step executed.
  void MarkRegened(unsigned long long const& id) { m_setRegened.insert(m_setRegened.end(), id); }
  /// Records an id whose object reported a change.
  void MarkUpdated(unsigned long long const& id) { m_setUpdated.insert(m_setUpdated.end(), id); }

  IdSet const& GetDeletedIds() const { return m_setDeleted; }
  IdSet const& GetRegenedIds() const { return m_setRegened; }
  IdSet const& GetUpdatedIds() const { return m_setUpdated; }

private:
  IdSet m_setDeleted;
  IdSet m_setRegened;
  IdSet m_setUpdated;
};

} // namespace zrn

#endif // ZRN_REGEN_REGENATOM_H
