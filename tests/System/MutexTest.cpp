#include <zrn/System/Mutex.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>

namespace zrn {
namespace {

// Starts a thread that takes `mutex`, records that it got it and lets go.
struct Contender {
  explicit Contender(CMutex& mutex)
      : thread([this, &mutex] {
          CLock lock(mutex);
          acquired = true;
        }) {}
  std::atomic<bool> acquired{false};
  std::jthread thread; // joins when the contender goes out of scope
};

// With `mutex` held once by this thread, another thread must wait until it is
// unlocked.
void ExpectOthersWaitForTheLastUnlock(CMutex& mutex) {
  Contender other(mutex);
  // Give the contender a chance to run; it must still be waiting.
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(other.acquired);
  mutex.Unlock();
  other.thread.join();
  EXPECT_TRUE(other.acquired);
}

TEST(CMutex, OwnerMayLockAgainAndMustUnlockAsOften) {
  CMutex mutex;
  mutex.Lock();
  mutex.Lock();
  mutex.Unlock();
  ExpectOthersWaitForTheLastUnlock(mutex);
}

TEST(CMutex, UnlockByAThreadThatDoesNotOwnItDoesNothing) {
  CMutex mutex;
  mutex.Lock();
  std::thread([&] { mutex.Unlock(); }).join();
  ExpectOthersWaitForTheLastUnlock(mutex);
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
  other.thread.join();
  EXPECT_TRUE(other.acquired);
}

#ifndef NDEBUG
TEST(CMutexDeathTest, DestroyingAnOwnedMutexAbortsWhenAssertionsAreOn) {
  EXPECT_DEATH(
      {
        auto* mutex = new CMutex;
        mutex->Lock();
        delete mutex;
      },
      "CMutex destroyed while a thread owns it");
}
#endif

} // namespace
} // namespace zrn
