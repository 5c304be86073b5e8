#include "tests/support/Wait.h"
#include "tests/unit/thread/Faults.h"
#include "tests/unit/thread/TestThreads.h"
#include "thread/EventClass.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>

namespace vorn {

namespace {

using support::kSilence;

/// Sets the event until the future is ready: a Set that comes before the wait is lost.
bool SetUntilReady(CEventClass& event, const std::future<void>& future) {
  return support::WaitUntil([&] {
    event.Set();
    return IsReady(future, std::chrono::milliseconds(0));
  });
}

}  // namespace

TEST(EventClass, IsCreated) {
  const CEventClass event;
  EXPECT_TRUE(event.Created());
}

TEST(EventClass, SetWakesAWaitThatReturnsTrue) {
  CEventClass event;
  std::atomic<bool> result{false};
  std::future<void> woken = std::async(std::launch::async, [&] {
    result = event.Wait();
    event.Reset();
  });
  EXPECT_TRUE(SetUntilReady(event, woken));
  EXPECT_TRUE(result);
}

TEST(EventClass, LosesASetThatComesWhileNobodyWaits) {
  CEventClass event;
  event.Set();
  std::future<void> woken = std::async(std::launch::async, [&] {
    event.Wait();
    event.Reset();
  });
  EXPECT_FALSE(IsReady(woken, kSilence));
  EXPECT_TRUE(SetUntilReady(event, woken));
}

TEST(EventClass, HoldsBackASetBetweenWaitAndReset) {
  CEventClass event;
  event.Wait([] { return true; });
  std::future<void> set = std::async(std::launch::async, [&] { event.Set(); });
  EXPECT_FALSE(IsReady(set, kSilence));
  event.Reset();
  EXPECT_TRUE(IsReady(set));
}

TEST(EventClass, LetsTheWokenThreadSetItself) {
  CEventClass event;
  event.Wait([] { return true; });
  event.Set();
  event.Reset();
  std::future<void> set = std::async(std::launch::async, [&] { event.Set(); });
  EXPECT_TRUE(IsReady(set));
}

TEST(EventClass, DoesNotWaitForWhatIsDueAlready) {
  CEventClass event;
  EXPECT_TRUE(event.Wait([] { return true; }));
  event.Reset();
}

TEST(EventClass, NeverMissesAConditionMadeTrueBeforeTheSet) {
  constexpr int kRounds = 2000;
  CEventClass event;
  std::atomic<int> announced{0};
  std::atomic<int> seen{0};
  std::thread waiter([&] {
    for (int round = 1; round <= kRounds; ++round) {
      event.Wait([&] { return announced >= round; });
      event.Reset();
      seen = round;
    }
  });
  for (int round = 1; round <= kRounds; ++round) {
    announced = round;
    event.Set();
    while (seen < round) {
      std::this_thread::yield();
    }
  }
  waiter.join();
  EXPECT_EQ(seen, kRounds);
}

TEST(EventClass, ASetOfAThreadThatHasWaitedBeforeReachesTheNextWaiterOnItsWayToItsWait) {
  CEventClass event;
  event.Wait([] { return true; });
  event.Reset();
  GATE isLooking;
  std::future<void> woken = std::async(std::launch::async, [&] {
    event.Wait([&] {
      isLooking.Pass();
      return false;
    });
    event.Reset();
  });
  ASSERT_TRUE(isLooking.WaitUntilReached());
  // The Set has to take the mutex that the waiter looks under, and so comes when that one waits.
  beforeMutexLock = [&] { isLooking.Open(); };
  event.Set();
  beforeMutexLock = nullptr;
  isLooking.Open();
  EXPECT_TRUE(IsReady(woken));
  EXPECT_TRUE(SetUntilReady(event, woken));
}

}  // namespace vorn
