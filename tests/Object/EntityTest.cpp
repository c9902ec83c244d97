// Entity trees in memory: no facade is installed here, so every persistence
// side effect is off (those are covered with the project tests).
#include <zrn/IO/DBDevice.h>
#include <zrn/Object/Project.h>

#include <gtest/gtest.h>

#include <vector>

namespace zrn {
namespace {

using Ids = std::vector<long long>;
using Nodes = std::vector<IBaseEntity*>;

TEST(IBaseEntity, IdsComeFromTheProjectInPreOrder) {
  auto* sub = new IBaseEntity();
  auto* a = new IBaseEntity();
  auto* kept = new IBaseEntity();
  auto* b = new IBaseEntity();
  sub->AddChild(a);
  a->AddChild(kept);
  sub->AddChild(b);
  kept->SetObjectID(50);
  EXPECT_EQ(a->GetObjectID(), 1); // no project yet
  Nodes nodes{nullptr};
  IBaseEntity::GetAllLeafChild(b, nodes);
  EXPECT_EQ(nodes, (Nodes{nullptr, b})); // appended; a leaf alone

  IBaseProject project;
  project.AddChild(sub);
  EXPECT_EQ((Ids{sub->GetObjectID(), a->GetObjectID(), kept->GetObjectID(), b->GetObjectID()}),
            (Ids{2, 3, 50, 4}));
  EXPECT_EQ(b->GetProject(), &project);
  EXPECT_EQ(b->GetDBDevice(), nullptr);
  EXPECT_EQ(project.GetUniqueID(), 5);
  IBaseEntity stranger;
  EXPECT_FALSE(project.DeleteChild(&stranger));
  EXPECT_TRUE(project.DeleteChild(sub));
  EXPECT_TRUE(project.GetAllChild().empty());
}

TEST(IBaseEntity, WithoutFacadeFlagsAndImplAreLocal) {
  IBaseEntity entity;
  entity.SetObjectFlag(true, EGOBJECT_FLAG_SWAPPED); // a plain OR: MODIFIED stays
  EXPECT_TRUE(entity.HasObjectFlag(EGOBJECT_FLAG(EGOBJECT_FLAG_MODIFIED | EGOBJECT_FLAG_SWAPPED)));
  entity.SetObjectFlag(false, EGOBJECT_FLAG_MODIFIED);
  EXPECT_FALSE(entity.HasObjectFlag(EGOBJECT_FLAG_MODIFIED));

  IBaseEntityImpl* impl = entity.GetBaseEntityImpl(true);
  EXPECT_EQ(impl->GetBaseEntity(), &entity);
  entity.SetImplObject(impl); // the same object is kept, not deleted
  entity.SwapDataToDisk();    // does nothing
  EXPECT_EQ(entity.GetBaseEntityImpl(false), impl);
}

#if defined(__SANITIZE_ADDRESS__)
#define ZRN_TEST_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZRN_TEST_ASAN 1
#endif
#endif
#ifdef ZRN_TEST_ASAN
constexpr int kChain = 200000;
#else
constexpr int kChain = 1000000;
#endif

// Some hosts empty their children themselves before the base class does.
class SelfCleaning : public IBaseEntity {
public:
  ~SelfCleaning() override { DeleteAllChild(); }
};

// A chain built bottom-up, so that no AddChild walks a long path.
IBaseEntity* Chain(IBaseEntity** bottom = nullptr) {
  IBaseEntity* top = nullptr;
  for (int i = 0; i < kChain; ++i) {
    IBaseEntity* node = i % 2 ? new SelfCleaning() : new IBaseEntity();
    if (top)
      node->AddChild(top);
    else if (bottom)
      *bottom = node;
    top = node;
  }
  return top;
}

TEST(IBaseEntity, DeepChainsWithoutRecursion) {
  IBaseEntity* bottom = nullptr;
  IBaseEntity* top = Chain(&bottom);
  IBaseProject project;
  project.AddChild(top);
  EXPECT_EQ(top->GetObjectID(), 2);
  EXPECT_EQ(bottom->GetObjectID(), kChain + 1);
  Nodes all;
  IBaseEntity::GetAllLeafChild(&project, all);
  ASSERT_EQ(all.size(), kChain + 1u);
  EXPECT_TRUE(all[1] == top && all.back() == bottom);

  EXPECT_TRUE(project.DeleteChild(top));
  project.AddChild(Chain());
  project.DeleteAllChild();
  project.AddChild(Chain());
  delete Chain(); // a free chain; the project's goes with the project
}

} // namespace
} // namespace zrn
