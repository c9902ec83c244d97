#include <zrn/Regen/ObjectRelation.h>
#include <zrn/Regen/RelationContext.h>

#include <algorithm>

namespace zrn {

void GRegenObjectRelation::Add(RelationType kind, unsigned long long const& id) {
  m_mapRelations[kind].insert(id);
}

void GRegenObjectRelation::Remove(RelationType kind, unsigned long long const& id) {
  m_mapRelations[kind].erase(id);
}

void GRegenObjectRelation::Remove(KindMap const& relations) {
  for (auto const& [kind, ids] : relations) {
    if (ids.empty())
      continue;
    IdSet& own = m_mapRelations[kind];
    for (unsigned long long id : ids) {
      if (own.empty())
        break;
      own.erase(id);
    }
  }
}

GRegenObjectRelation::IdSet const& GRegenObjectRelation::GetRelatedIds(RelationType kind) {
  return m_mapRelations[kind];
}

void GRegenObjectRelation::GetAllRelations(IdSet& ids) const {
  for (auto const& entry : m_mapRelations)
    ids.insert(entry.second.begin(), entry.second.end());
}

bool GRegenObjectRelation::IsIdExist(unsigned long long const& id) const {
  for (auto const& entry : m_mapRelations)
    if (entry.second.count(id) != 0)
      return true;
  return false;
}

void GRegenObjectRelationDb::AddRelation(unsigned long long const& first,
                                         unsigned long long const& second,
                                         GRegenObjectRelation::RelationType kind) {
  m_mapRelations[second].Add(kind, first);
}

void GRegenObjectRelationDb::RemoveRelation(unsigned long long const& first,
                                            unsigned long long const& second,
                                            GRegenObjectRelation::RelationType kind) {
  if (GRegenObjectRelation* entry = GetRelations(second))
    entry->Remove(kind, first);
}

void GRegenObjectRelationDb::RemoveRelation(unsigned long long const& id) {
  m_mapRelations.erase(id);
}

GRegenObjectRelation* GRegenObjectRelationDb::GetRelations(unsigned long long const& id) {
  const auto found = m_mapRelations.find(id);
  return found == m_mapRelations.end() ? nullptr : &found->second;
}

IRelationContext::~IRelationContext() = default;

void GCollectRelationContext::AddRelation(unsigned long long const& first,
                                          unsigned long long const& second,
                                          GRegenObjectRelation::RelationType kind) {
  m_db.AddRelation(first, second, kind);
}

void GRemoveRelationContext::AddRelation(unsigned long long const& first,
                                         unsigned long long const& second,
                                         GRegenObjectRelation::RelationType kind) {
  m_db.RemoveRelation(first, second, kind);
}

void GQueryRelationContext::AddRelation(unsigned long long const&, unsigned long long const& second,
                                        GRegenObjectRelation::RelationType) {
  if (m_nDependedOn < kInlineIds)
    m_arrDependedOn[m_nDependedOn++] = second;
  else
    m_vecMoreDependedOn.push_back(second);
}

bool GQueryRelationContext::IsIdExist(unsigned long long const& id) const {
  unsigned long long const* const end = m_arrDependedOn + m_nDependedOn;
  return std::find(m_arrDependedOn, end, id) != end ||
         std::find(m_vecMoreDependedOn.begin(), m_vecMoreDependedOn.end(), id) !=
             m_vecMoreDependedOn.end();
}

} // namespace zrn
