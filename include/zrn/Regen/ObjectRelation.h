// Who depends on whom: per object, the ids of the objects that depend on it,
// grouped by kind of relation.
//
// A relation is stated as (first id, second id, kind) and stored in the entry
// of the second id: objects report the objects they depend on with their own
// id first, so the entry of B lists the objects that depend on B, and a
// change of B must reach them.
#ifndef ZRN_REGEN_OBJECTRELATION_H
#define ZRN_REGEN_OBJECTRELATION_H

#include <zrn/Export.h>

#include <map>
#include <set>
#include <unordered_map>

namespace zrn {

/// The dependents of one object, by kind. A plain value type.
class ZRN_API GRegenObjectRelation {
public:
  /// Kinds of relation, defined by the host; ordered as signed 32-bit values.
  enum RelationType : int {};

  using IdSet = std::set<unsigned long long>;
  using KindMap = std::map<RelationType, IdSet>;

  /// Adds `id` under `kind`.
  void Add(RelationType kind, unsigned long long const& id);
  /// Removes `id` from `kind` (a missing kind gets an empty entry).
  void Remove(RelationType kind, unsigned long long const& id);
  /// For every kind with ids in `relations`, removes those ids from this
  /// relation's non-empty set of the kind.
  void Remove(KindMap const& relations);
  /// The ids of `kind` (a missing kind gets an empty entry, returned).
  IdSet const& GetRelatedIds(RelationType kind);
  /// Inserts the ids of every kind into `ids` (not cleared first).
  void GetAllRelations(IdSet& ids) const;
  /// True when `id` is in the set of any kind.
  bool IsIdExist(unsigned long long const& id) const;

  KindMap::const_iterator begin() const { return m_mapRelations.begin(); }
  KindMap::const_iterator end() const { return m_mapRelations.end(); }

private:
  KindMap m_mapRelations;
};

/// Object ids to the relations stored under them. A plain value type.
///
/// Entries are kept in a hash table: nothing reads them in id order, and a
/// regeneration pass looks one up for every object it reaches.
class ZRN_API GRegenObjectRelationDb {
public:
  /// Records that `first` depends on `second` (in the entry of `second`,
  /// created when missing).
  void AddRelation(unsigned long long const& first, unsigned long long const& second,
                   GRegenObjectRelation::RelationType kind);
  /// Forgets that `first` depends on `second`; creates no entry.
  void RemoveRelation(unsigned long long const& first, unsigned long long const& second,
                      GRegenObjectRelation::RelationType kind);
  /// Erases the entry of `id` (the objects that depend on it).
  void RemoveRelation(unsigned long long const& id);
  /// The entry of `id`, or null; creates none.
  GRegenObjectRelation* GetRelations(unsigned long long const& id);
  void ClearAll() { m_mapRelations.clear(); }

private:
  std::unordered_map<unsigned long long, GRegenObjectRelation> m_mapRelations;
};

} // namespace zrn

#endif // ZRN_REGEN_OBJECTRELATION_H
