// Object tags: an id with the object it names.
#include <zrn/Object/ObjTag.h>

#include <gtest/gtest.h>

namespace zrn {
namespace {

TEST(GObjTag, TagsWithTheSameIdButAnotherObjectDiffer) {
  int a = 0, b = 0;
  EXPECT_FALSE(GObjTag(5, &a) == GObjTag(5, &b));
}

TEST(GObjTag, AssignmentCopiesAndInitClears) {
  int a = 0;
  GObjTag tag(5, &a), copy;
  EXPECT_TRUE((copy = tag) == tag);
  copy.Init();
  EXPECT_TRUE(copy.GetObjID() == 0 && copy.GetPointer() == nullptr);
}

} // namespace
} // namespace zrn
