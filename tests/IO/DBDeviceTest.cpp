// The state a device shares with the objects it saves and loads.
#include <zrn/IO/DBDevice.h>

#include <gtest/gtest.h>

namespace zrn {
namespace {

TEST(IODeviceContext, StartsNeitherLoadingNorSaving) {
  IODeviceContext context;
  EXPECT_FALSE(context.loading || context.saving || context.suppressDeleteLog);
}

TEST(IODeviceContext, NeedLazyModifiedTurnsModeZeroIntoTwoAndKeepsOthers) {
  IODeviceContext context;
  for (int mode : {2, 0, 1}) {
    context.lazyModifiedMode = mode;
    context.SetNeedLazyCaculateModified();
    EXPECT_EQ(context.lazyModifiedMode, mode == 1 ? 1 : 2);
  }
}

} // namespace
} // namespace zrn
