#include <zrn/Regen/ObjectRelation.h>
#include <zrn/Regen/RelationContext.h>

#include <gtest/gtest.h>

namespace zrn {
namespace {

using Kind = GRegenObjectRelation::RelationType;
constexpr Kind kShape = static_cast<Kind>(1);
constexpr Kind kPosition = static_cast<Kind>(-2);

TEST(GRegenObjectRelationDb, TheEntryOfTheSecondIdListsItsDependents) {
  GRegenObjectRelationDb db;
  db.AddRelation(10, 20, kShape);
  db.AddRelation(10, 20, kShape); // stored once
  db.AddRelation(11, 20, kPosition);
  ASSERT_NE(db.GetRelations(20), nullptr);
  EXPECT_EQ(db.GetRelations(10), nullptr);
  EXPECT_TRUE(db.GetRelations(20)->IsIdExist(10));

  std::set<unsigned long long> all{99};
  db.GetRelations(20)->GetAllRelations(all);
  EXPECT_EQ(all, (std::set<unsigned long long>{10, 11, 99}));
  std::vector<Kind> kinds;
  for (auto const& entry : *db.GetRelations(20))
    kinds.push_back(entry.first);
  EXPECT_EQ(kinds, (std::vector<Kind>{kPosition, kShape})); // signed order

  db.RemoveRelation(10, 30, kShape); // no entry for 30: none is created
  EXPECT_EQ(db.GetRelations(30), nullptr);
  db.RemoveRelation(10, 20, kShape);
  EXPECT_FALSE(db.GetRelations(20)->IsIdExist(10));
  EXPECT_TRUE(db.GetRelations(20)->GetRelatedIds(kShape).empty()); // the kind stays
  db.RemoveRelation(20);
  EXPECT_EQ(db.GetRelations(20), nullptr);
}

TEST(GRegenObjectRelation, RemovingAMapOfKinds) {
  GRegenObjectRelation relation;
  relation.Add(kShape, 1);
  relation.Add(kShape, 2);
  relation.Remove({{kShape, {2, 3}}, {kPosition, {}}});
  EXPECT_EQ(relation.GetRelatedIds(kShape), (std::set<unsigned long long>{1}));
  EXPECT_TRUE(relation.GetRelatedIds(static_cast<Kind>(7)).empty());
}

TEST(RelationContexts, DecideWhatReportsDo) {
  GRegenObjectRelationDb db;
  GCollectRelationContext collect(db);
  collect.AddRelation(1, 2, kShape);
  collect.AddRelation(3, 2, kShape);
  std::set<unsigned long long> ids{5};
  GRemoveRelationContext remove(db, ids);
  remove.AddRelation(1, 2, kShape);
  remove.AddRelation(1, 9, kShape); // no entry for 9: nothing changes
  EXPECT_FALSE(db.GetRelations(2)->IsIdExist(1));
  EXPECT_TRUE(db.GetRelations(2)->IsIdExist(3));
  EXPECT_EQ(db.GetRelations(9), nullptr);
  EXPECT_EQ(remove.GetIds(), (std::set<unsigned long long>{5}));

  GQueryRelationContext query;
  EXPECT_FALSE(query.IsIdExist(2));
  query.AddRelation(1, 2, kShape);
  EXPECT_TRUE(query.IsIdExist(2));
  EXPECT_FALSE(query.IsIdExist(1)); // the first id is not recorded
  for (unsigned long long id = 10; id < 20; ++id) // more than the context holds inline
    query.AddRelation(1, id, kShape);
  for (unsigned long long id : {2ULL, 10ULL, 12ULL, 13ULL, 19ULL})
    EXPECT_TRUE(query.IsIdExist(id)) << id;
  EXPECT_FALSE(query.IsIdExist(20));

  GRemoveObjectContext removal(7);
  removal.MarkRemove(9);
  removal.MarkRemove(8);
  removal.MarkRemove(9);
  EXPECT_EQ(removal.GetTargetId(), 7u);
  EXPECT_EQ(removal.GetIdsToRemove(), (std::set<unsigned long long>{8, 9}));
}

} // namespace
} // namespace zrn
