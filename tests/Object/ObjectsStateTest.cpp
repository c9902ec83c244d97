// The list of deleted object ids a save writes.
#include <zrn/Object/ObjectsState.h>

#include <gtest/gtest.h>

#include <vector>

namespace {

using Ids = std::vector<long long>;

TEST(GObjectsState, DeleteListReplacesTheOutputAndKeepsDuplicates) {
  GObjectsState state;
  state.RegisterDeleteObject(5);
  state.RegisterDeleteObject(5);
  Ids out{1, 2, 3, 4};
  state.GetDeleteList(out);
  EXPECT_EQ(out, (Ids{5, 5}));
}

TEST(GObjectsState, CopiesAreIndependentOfTheOriginal) {
  GObjectsState state;
  state.RegisterDeleteObject(5);
  state.RegisterDeleteObject(5);
  GObjectsState twin(state);
  twin.RegisterDeleteObject(9);
  state.ClearAllList();
  Ids out;
  state.GetDeleteList(out);
  EXPECT_TRUE(out.empty());
  twin.GetDeleteList(out);
  EXPECT_EQ(out, (Ids{5, 5, 9}));
}

} // namespace
