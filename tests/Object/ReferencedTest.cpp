#include <zrn/Object/RefPtr.h>

#include <gtest/gtest.h>

namespace zrn {
namespace {

// Counts its destructions in a variable the test owns.
class Tracked : public CReferenced {
public:
  explicit Tracked(int& destroyed) : m_destroyed(&destroyed) {}

protected:
  ~Tracked() override { ++*m_destroyed; }

private:
  int* m_destroyed;
};

TEST(CReferenced, CountsDecideWhenObjectsDie) {
  int destroyed = 0;
  auto* object = new Tracked(destroyed);
  EXPECT_EQ(object->ReferenceCount(), 0);
  object->Ref();
  object->Ref();
  object->Unref();
  EXPECT_EQ(object->ReferenceCount(), 1);
  object->UnrefNoDelete(); // reaches 0 and stays alive
  EXPECT_EQ(object->ReferenceCount(), 0);
  object->SignalAndDelete(false);
  EXPECT_EQ(destroyed, 0);
  object->Ref();
  object->Unref();
  EXPECT_EQ(destroyed, 1);

  auto* pinned = new Tracked(destroyed);
  pinned->Ref();
  pinned->Ref();
  pinned->SignalAndDelete(true); // whatever the count
  EXPECT_EQ(destroyed, 2);
}

TEST(CReferenced, CountsBelongToObjectsNotValues) {
  struct Value : CReferenced {};
  Value a;
  Value b;
  for (int i = 0; i < 5; ++i)
    a.Ref();
  b.Ref();
  Value copy(a);
  b = a;
  EXPECT_EQ(copy.ReferenceCount(), 0);
  EXPECT_EQ(a.ReferenceCount(), 5);
  EXPECT_EQ(b.ReferenceCount(), 1);
}

TEST(CReferenced, IntrusiveHooksActOnTheirArgumentThroughTheVirtualTable) {
  struct Counting : CReferenced {
    int refs = 0;
    int unrefs = 0;
    void Ref() override { ++refs, CReferenced::Ref(); }
    void Unref() override { ++unrefs, CReferenced::Unref(); }
  };
  Counting hook;
  Counting target;
  hook.IntrusivePtrAddRef(&target);
  hook.IntrusivePtrAddRef(&target);
  hook.IntrusivePtrRelease(&target);
  EXPECT_EQ(target.refs, 2);
  EXPECT_EQ(target.unrefs, 1);
  EXPECT_EQ(target.ReferenceCount(), 1);
  EXPECT_EQ(hook.refs + hook.unrefs, 0);
  target.UnrefNoDelete(); // a stack object must not be deleted
}

TEST(CWeakPtrCounter, AddRefLockFollowsTheObjectsLife) {
  int destroyed = 0;
  auto* object = new Tracked(destroyed);
  CWeakPtrCounter* counter = new CWeakPtrCounter(object);
  counter->Ref();
  EXPECT_EQ(counter->ReferenceCount(), 1);
  EXPECT_EQ(counter->GetObserverdObject(), object);

  // Count 0 but not yet cleared: the object counts as dying.
  EXPECT_EQ(counter->AddRefLock(), nullptr);
  EXPECT_EQ(object->ReferenceCount(), 0);

  object->Ref();
  EXPECT_EQ(counter->AddRefLock(), object);
  EXPECT_EQ(object->ReferenceCount(), 2);
  object->Unref();

  counter->Invalidate();
  EXPECT_EQ(counter->GetObserverdObject(), nullptr);
  EXPECT_EQ(counter->AddRefLock(), nullptr);
  object->Unref();
  EXPECT_EQ(destroyed, 1);
  counter->Unref();
}

TEST(CRefPtr, HoldsOneReferencePerPointer) {
  int destroyed = 0;
  {
    CRefPtr<Tracked> a = MakeRef<Tracked>(destroyed);
    CRefPtr<CReferenced> base = a;
    CRefPtr<Tracked> moved = CRefPtr<Tracked>(a);
    EXPECT_EQ(a->ReferenceCount(), 3);
    base.reset();
    moved = nullptr;
    EXPECT_EQ(a->ReferenceCount(), 1);
    CRefPtr<Tracked> adopted = CRefPtr<Tracked>::Adopt(a.release());
    EXPECT_FALSE(a);
    EXPECT_EQ(adopted->ReferenceCount(), 1);
  }
  EXPECT_EQ(destroyed, 1);
}

} // namespace
} // namespace zrn
