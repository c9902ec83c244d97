// The server store's revision index against a plain map that does what it
// must: remember, forget, roll back and commit, across folds of its overlay.
#include "Store/RevisionIndex.h"

#include <gtest/gtest.h>

#include <map>
#include <random>

namespace {

using zrn::detail::CRevisionIndex;

// The index and the map it must agree with, and the map's transaction.
class CModel {
public:
  void Load(long long id, long long rev) {
    index.Load(id, rev);
    now[id] = rev;
  }
  void Remember(long long id, long long rev) {
    index.Remember(id, rev);
    now[id] = rev;
  }
  void Forget(long long id) {
    index.Forget(id);
    now.erase(id);
  }
  void ForgetAll() {
    index.ForgetAll();
    now.clear();
  }
  void Commit() {
    index.Commit();
    before = now;
  }
  void Rollback() {
    index.Rollback();
    now = before;
  }
  void Check(long long ids) const {
    for (long long id = 0; id < ids; ++id) {
      auto found = now.find(id);
      ASSERT_EQ(index.Find(id), found == now.end() ? CRevisionIndex::kNone : found->second)
          << "id " << id;
    }
  }

  CRevisionIndex index;
  std::map<long long, long long> now;
  std::map<long long, long long> before;
};

TEST(RevisionIndexTest, LoadedRowsAreFoundAndGapsAreNot) {
  CModel model;
  for (long long id = 1; id < 100; id += 3)
    model.Load(id, id * 10);
  model.Load(50, 7); // out of order: still found
  model.Commit();
  model.Check(120);
}

TEST(RevisionIndexTest, RollbackUndoesWritesDeletesAndAClearOfEveryRow) {
  CModel model;
  for (long long id = 0; id < 10; ++id)
    model.Load(id, 1);
  model.Commit();
  model.Remember(3, 5);
  model.Forget(4);
  model.Remember(20, 5);
  model.ForgetAll();
  model.Remember(2, 6);
  model.Rollback();
  model.Check(30);
  model.Remember(3, 7);
  model.Commit();
  model.Rollback(); // nothing left to undo
  model.Check(30);
}

// Many random transactions, large enough that the overlay folds into the
// sorted rows several times.
TEST(RevisionIndexTest, RandomTransactionsAgreeWithAMap) {
  constexpr long long kIds = 20000;
  std::mt19937 random(7);
  CModel model;
  for (long long id = 0; id < kIds; id += 2)
    model.Load(id, 1);
  model.Commit();
  long long rev = 2;
  for (int round = 0; round < 40; ++round) {
    int const writes = static_cast<int>(random() % 8000);
    for (int i = 0; i < writes; ++i) {
      long long const id = static_cast<long long>(random() % kIds);
      switch (random() % 10) {
      case 0:
        model.Forget(id);
        break;
      case 1:
        if (random() % 50 == 0)
          model.ForgetAll();
        break;
      default:
        model.Remember(id, rev);
      }
    }
    if (random() % 3 == 0)
      model.Rollback();
    else
      model.Commit();
    ++rev;
    model.Check(kIds);
  }
}

} // namespace
