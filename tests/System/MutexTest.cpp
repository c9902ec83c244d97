#include <zrn/System/Mutex.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>

namespace zrn {
namespace {

// Starts a thread that takes `mutex`, records that it got it and lets go.
class Contender {
public:
  explicit Contender(CMutex& mutex)
      : m_thread([this, &mutex] {
          CLock lock(mutex);
          m_bAcquired = true;
        }) {}
  ~Contender() {
    if (m_thread.joinable())
      m_thread.join();
  }
  bool Acquired() const { return m_bAcquired; }
  void Join() { m_thread.join(); }

private:
  std::atomic<bool> m_bAcquired{false};
  std::thread m_thread;
};

TEST(CMutex, OwnerMayLockAgainAndMustUnlockAsOften) {
  CMutex mutex;
  mutex.Lock();
  mutex.Lock();
  mutex.Unlock();
  Contender other(mutex);
  // Give the contender a chance to run; it must still be waiting.
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(other.Acquired());
  mutex.Unlock();
  other.Join();
  EXPECT_TRUE(other.Acquired());
}

TEST(CMutex, UnlockByAThreadThatDoesNotOwnItDoesNothing) {
  CMutex mutex;
  mutex.Lock();
  std::thread([&] { mutex.Unlock(); }).join();
  Contender other(mutex);
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(other.Acquired());
  mutex.Unlock();
  other.Join();
  EXPECT_TRUE(other.Acquired());
}

TEST(CLock, ReleasesWhenABlockIsLeftByAnException) {
  CMutex mutex;
  EXPECT_THROW(
      {
        CLock lock(mutex);
        CLock again(mutex);
        throw std::runtime_error("leave the block");
      },
      std::runtime_error);
  Contender other(mutex);
  other.Join();
  EXPECT_TRUE(other.Acquired());
}

TEST(CMutex, SerialisesIncrementsAcrossThreads) {
  CMutex mutex;
  long long counter = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&] {
      for (int i = 0; i < 20000; ++i) {
        CLock outer(mutex);
        CLock inner(mutex);
        ++counter;
      }
    });
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(counter, 80000);
}

} // namespace
} // namespace zrn
