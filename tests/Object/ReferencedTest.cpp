#include <zrn/Object/RefPtr.h>

#include <gtest/gtest.h>

namespace zrn {
namespace {

// Counts its destructions in a variable the test owns.
class Tracked : public CReferenced {
public:
  explicit Tracked(int& destroyed) : m_destroyed(&destroyed) {}
  Tracked(Tracked const& other) = default;
  Tracked& operator=(Tracked const& other) = default;

protected:
  ~Tracked() override { ++*m_destroyed; }

private:
  int* m_destroyed;
};

TEST(CReferenced, LastUnrefDestroysExactlyOnce) {
  int destroyed = 0;
  auto* object = new Tracked(destroyed);
  EXPECT_EQ(object->ReferenceCount(), 0);
  object->Ref();
  object->Ref();
  object->Unref();
  EXPECT_EQ(object->ReferenceCount(), 1);
  EXPECT_EQ(destroyed, 0);
  object->Unref();
  EXPECT_EQ(destroyed, 1);
}

TEST(CReferenced, UnrefNoDeleteAndSignalAndDelete) {
  int destroyed = 0;
  auto* object = new Tracked(destroyed);
  object->Ref();
  object->UnrefNoDelete();
  EXPECT_EQ(object->ReferenceCount(), 0);
  object->SignalAndDelete(false);
  EXPECT_EQ(destroyed, 0);
  object->Ref();
  object->Ref();
  object->SignalAndDelete(true); // whatever the count
  EXPECT_EQ(destroyed, 1);
}

TEST(CReferenced, CountsBelongToObjectsNotValues) {
  int destroyed = 0;
  auto* a = new Tracked(destroyed);
  auto* b = new Tracked(destroyed);
  for (int i = 0; i < 5; ++i)
    a->Ref();
  b->Ref();
  auto* copy = new Tracked(*a);
  EXPECT_EQ(copy->ReferenceCount(), 0);
  *b = *a;
  EXPECT_EQ(a->ReferenceCount(), 5);
  EXPECT_EQ(b->ReferenceCount(), 1);
  copy->SignalAndDelete(true);
  a->SignalAndDelete(true);
  b->Unref();
  EXPECT_EQ(destroyed, 3);
}

TEST(CReferenced, IntrusiveHooksActOnTheirArgumentThroughTheVirtualTable) {
  struct Counting : CReferenced {
    int refs = 0;
    int unrefs = 0;
    void Ref() override {
      ++refs;
      CReferenced::Ref();
    }
    void Unref() override {
      ++unrefs;
      CReferenced::Unref();
    }
  };
  auto* hook = new Counting;
  auto* target = new Counting;
  hook->Ref();
  hook->IntrusivePtrAddRef(target);
  hook->IntrusivePtrAddRef(target);
  hook->IntrusivePtrRelease(target);
  EXPECT_EQ(target->refs, 2);
  EXPECT_EQ(target->unrefs, 1);
  EXPECT_EQ(target->ReferenceCount(), 1);
  EXPECT_EQ(hook->refs, 1);
  target->Unref();
  hook->Unref();
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
    EXPECT_EQ(a->ReferenceCount(), 1);
    CRefPtr<Tracked> b = a;
    CRefPtr<CReferenced> base = b;
    EXPECT_EQ(a->ReferenceCount(), 3);
    CRefPtr<Tracked> moved = std::move(b);
    EXPECT_FALSE(b);
    EXPECT_EQ(a->ReferenceCount(), 3);
    EXPECT_TRUE(moved == a);
    base.reset();
    moved = nullptr;
    EXPECT_EQ(a->ReferenceCount(), 1);

    Tracked* raw = a.release();
    EXPECT_FALSE(a);
    CRefPtr<Tracked> adopted = CRefPtr<Tracked>::Adopt(raw);
    EXPECT_EQ(adopted->ReferenceCount(), 1);
    EXPECT_EQ(destroyed, 0);
  }
  EXPECT_EQ(destroyed, 1);
}

} // namespace
} // namespace zrn
