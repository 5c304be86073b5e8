#include "tests/support/Wait.h"
#include "tests/unit/thread/TestThreads.h"
#include "thread/MutexClass.h"

#include <gtest/gtest.h>

#include <future>
#include <optional>
#include <thread>
#include <vector>

namespace vorn {

namespace {

using support::kSilence;

/// Takes and frees the mutex on a thread of its own; ready as soon as it has got it.
std::future<void> TakeElsewhere(CMutexClass& mutex) {
  return std::async(std::launch::async, [&mutex] {
    mutex.Lock();
    mutex.Unlock();
  });
}

}  // namespace

TEST(MutexClass, IsCreatedFree) {
  CMutexClass mutex;
  EXPECT_TRUE(mutex.Created());
  EXPECT_TRUE(IsReady(TakeElsewhere(mutex)));
}

TEST(MutexClass, KeepsAnotherThreadOutUntilItIsUnlocked) {
  CMutexClass mutex;
  mutex.Lock();
  const std::future<void> taken = TakeElsewhere(mutex);
  EXPECT_FALSE(IsReady(taken, kSilence));
  mutex.Unlock();
  EXPECT_TRUE(IsReady(taken));
}

TEST(MutexClass, LockedTwiceInOneThreadIsFreeAfterOneUnlock) {
  CMutexClass mutex;
  mutex.Lock();
  mutex.Lock();
  mutex.Unlock();
  EXPECT_TRUE(IsReady(TakeElsewhere(mutex)));
}

TEST(MutexClass, UnlockOfAFreeMutexDoesNothing) {
  CMutexClass mutex;
  mutex.Unlock();
  mutex.Lock();
  mutex.Unlock();
  EXPECT_TRUE(IsReady(TakeElsewhere(mutex)));
}

TEST(MutexClass, IgnoresTheUnlockOfAThreadThatDoesNotHoldIt) {
  CMutexClass mutex;
  mutex.Lock();
  std::thread([&mutex] { mutex.Unlock(); }).join();
  const std::future<void> taken = TakeElsewhere(mutex);
  EXPECT_FALSE(IsReady(taken, kSilence));
  mutex.Unlock();
  EXPECT_TRUE(IsReady(taken));
}

TEST(MutexClass, LetsOneThreadAtATimeThrough) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 2000;
  CMutexClass mutex;
  int counter = 0;
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < kRounds; ++round) {
        const CScopedLock lock(mutex);
        ++counter;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(counter, kThreads * kRounds);
}

TEST(MutexClass, IsDestroyedWhileItsDestroyerHoldsIt) {
  std::optional<CMutexClass> mutex(std::in_place);
  mutex->Lock();
  mutex.reset();
  EXPECT_FALSE(mutex.has_value());
}

TEST(MutexClass, DestructionWaitsForTheHolder) {
  std::optional<CMutexClass> mutex(std::in_place);
  std::promise<void> held;
  std::promise<void> release;
  std::thread holder(
      [&, &lent = *mutex] {  // the optional says that it is empty from the start of the reset
        lent.Lock();
        held.set_value();
        release.get_future().wait();
        lent.Unlock();
      });
  held.get_future().wait();
  std::future<void> destroyed = std::async(std::launch::async, [&] { mutex.reset(); });
  EXPECT_FALSE(IsReady(destroyed, kSilence));
  release.set_value();
  EXPECT_TRUE(IsReady(destroyed));
  holder.join();
}

}  // namespace vorn
