#include <zrn/Object/WeakPtr.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace zrn {
namespace {

class Node : public CReferenced {
public:
  explicit Node(std::atomic<int>* destroyed = nullptr) : m_destroyed(destroyed) {}
  int value = 42;

protected:
  ~Node() override {
    value = -1;
    if (m_destroyed)
      ++*m_destroyed;
  }

private:
  std::atomic<int>* m_destroyed;
};

TEST(CWeakPtr, SharesOneCounterAndLocksOnlyWhileTheObjectLives) {
  std::atomic<int> destroyed{0};
  CRefPtr<Node> node = MakeRef<Node>(&destroyed);
  CWeakPtr<Node> weak(node);
  CRefPtr<CWeakPtrCounter> counter = GetWeakPtrCounter(node.get());
  EXPECT_EQ(counter, GetWeakPtrCounter(node.get()));
  EXPECT_FALSE(weak.Expired());
  EXPECT_TRUE(weak.Lock() == node);
  EXPECT_EQ(node->ReferenceCount(), 1); // the locked reference is gone again

  node = nullptr;
  EXPECT_EQ(destroyed.load(), 1);
  EXPECT_TRUE(weak.Expired());
  EXPECT_FALSE(weak.Lock());
  EXPECT_EQ(counter->GetObserverdObject(), nullptr); // the counter outlives its object
  EXPECT_FALSE(CWeakPtr<Node>().Lock());
  EXPECT_EQ(GetWeakPtrCounter(nullptr), nullptr);
}

TEST(CWeakPtr, NewObjectAtAFreedAddressGetsANewCounter) {
  std::vector<CWeakPtr<Node>> dead;
  for (int i = 0; i < 64; ++i) {
    CRefPtr<Node> node = MakeRef<Node>();
    dead.emplace_back(node);
  }
  // The allocator is likely to hand the same addresses out again.
  std::vector<CRefPtr<Node>> alive;
  for (int i = 0; i < 64; ++i)
    alive.push_back(MakeRef<Node>());
  for (auto const& weak : dead)
    EXPECT_FALSE(weak.Lock());
  for (auto const& node : alive)
    EXPECT_TRUE(CWeakPtr<Node>(node).Lock() == node);
}

TEST(CWeakPtr, LastReferenceDroppedWhileOtherThreadsLock) {
  constexpr int kRounds = 200;
  constexpr int kLockers = 3;
  for (int round = 0; round < kRounds; ++round) {
    std::atomic<int> destroyed{0};
    CRefPtr<Node> node = MakeRef<Node>(&destroyed);
    CWeakPtr<Node> weak(node);
    std::atomic<int> ready{0};
    std::vector<std::thread> lockers;
    for (int t = 0; t < kLockers; ++t)
      lockers.emplace_back([&] {
        ++ready;
        for (;;) {
          CRefPtr<Node> locked = weak.Lock();
          if (!locked)
            return;
          // Using the object must be safe for as long as the lock holds.
          ASSERT_EQ(locked->value, 42);
        }
      });
    while (ready.load() < kLockers)
      std::this_thread::yield();
    node = nullptr;
    for (auto& locker : lockers)
      locker.join();
    EXPECT_EQ(destroyed.load(), 1);
    EXPECT_TRUE(weak.Expired());
  }
}

// Guards against Expired reading the observed pointer while the destroying
// thread clears it: a data race that ThreadSanitizer reports.
TEST(CWeakPtr, ExpiredWhileTheObjectDiesOnAnotherThread) {
  for (int round = 0; round < 50; ++round) {
    CRefPtr<Node> node = MakeRef<Node>();
    CWeakPtr<Node> weak(node);
    std::atomic<bool> started{false};
    std::thread watcher([&] {
      started = true;
      while (!weak.Expired())
        std::this_thread::yield();
    });
    while (!started)
      std::this_thread::yield();
    node = nullptr;
    watcher.join();
    EXPECT_FALSE(weak.Lock());
  }
}

} // namespace
} // namespace zrn
