// The contexts through which objects report their relations. Which context
// an object is handed decides what its reports do: add to a database, remove
// from one, or only be recorded for a query.
#ifndef ZRN_REGEN_RELATIONCONTEXT_H
#define ZRN_REGEN_RELATIONCONTEXT_H

#include <zrn/Export.h>
#include <zrn/Regen/ObjectRelation.h>

#include <cstddef>
#include <set>
#include <vector>

namespace zrn {

/// Receives the relations an object reports as (own id, id depended on, kind).
class ZRN_API IRelationContext {
public:
  virtual ~IRelationContext();
  virtual void AddRelation(unsigned long long const& first, unsigned long long const& second,
                           GRegenObjectRelation::RelationType kind) = 0;
};

/// Adds the reported relations to a database.
class ZRN_API GCollectRelationContext : public IRelationContext {
public:
  explicit GCollectRelationContext(GRegenObjectRelationDb& db) : m_db(db) {}
  void AddRelation(unsigned long long const& first, unsigned long long const& second,
                   GRegenObjectRelation::RelationType kind) override;

private:
  GRegenObjectRelationDb& m_db;
};

/// Removes the reported relations from a database. The id set is held for
/// the context's creator and not touched by AddRelation.
class ZRN_API GRemoveRelationContext : public IRelationContext {
public:
  GRemoveRelationContext(GRegenObjectRelationDb& db, std::set<unsigned long long>& ids)
      : m_db(db), m_ids(ids) {}
  void AddRelation(unsigned long long const& first, unsigned long long const& second,
                   GRegenObjectRelation::RelationType kind) override;
  std::set<unsigned long long>& GetIds() { return m_ids; }

private:
  GRegenObjectRelationDb& m_db;
  std::set<unsigned long long>& m_ids;
};

/// Records the reported relations: which ids the object depends on.
class ZRN_API GQueryRelationContext : public IRelationContext {
public:
  void AddRelation(unsigned long long const& first, unsigned long long const& second,
                   GRegenObjectRelation::RelationType kind) override;
  /// True when `id` was reported as depended on, under any kind.
  bool IsIdExist(unsigned long long const& id) const;

private:
  // A query is made once per dependent reached, and objects report few
  // relations: the first ids sit in the context itself, so a query of an
  // object with few relations allocates nothing.
  static constexpr std::size_t kInlineIds = 4;
  unsigned long long m_arrDependedOn[kInlineIds] = {};
  std::size_t m_nDependedOn = 0;
  std::vector<unsigned long long> m_vecMoreDependedOn;
};

/// Handed to objects while an object is removed: they mark the ids that must
/// go with it.
class ZRN_API GRemoveObjectContext {
public:
  explicit GRemoveObjectContext(unsigned long long const& target) : m_nTarget(target) {}
  unsigned long long const& GetTargetId() const { return m_nTarget; }
  /// Marks `id` for removal (once, whatever the number of calls).
  void MarkRemove(unsigned long long const& id) { m_setToRemove.insert(id); }
  /// The ids marked, ascending.
  std::set<unsigned long long> const& GetIdsToRemove() const { return m_setToRemove; }

private:
  unsigned long long m_nTarget;
  std::set<unsigned long long> m_setToRemove;
};

} // namespace zrn

#endif // ZRN_REGEN_RELATIONCONTEXT_H
