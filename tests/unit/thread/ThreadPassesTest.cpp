// A worker's passes, and whether it is there to make them.

#include "tests/unit/thread/TestThreads.h"
#include "thread/Thread.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>

namespace vorn {

namespace {

using support::kSilence;
using support::WaitUntil;

}  // namespace

// --- passes -----------------------------------------------------------------------------------

TEST(Thread, PausesItsIdleTimeBetweenPasses) {
  constexpr int kPasses = 5;
  constexpr long kIdle = 50000;  // 5 ms
  const auto begin = std::chrono::steady_clock::now();
  TEST_THREAD thread(kIntervalDriven, kIdle, [] { return true; });
  EXPECT_TRUE(thread.WaitForPasses(kPasses));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, (kPasses - 1) * std::chrono::milliseconds(5));
}

TEST(Thread, IsNeverCalledBeforeItsTypeIsSet) {
  constexpr int kRounds = 500;
  for (int round = 0; round < kRounds; ++round) {
    TEST_THREAD thread;
    ASSERT_EQ(thread.Passes(), 0);
  }
}

TEST(Thread, NeverMissesTheChangeOfItsType) {
  constexpr int kRounds = 2000;
  for (int round = 0; round < kRounds; ++round) {
    std::promise<void> called;
    std::future<void> future = called.get_future();
    TEST_THREAD thread(kIntervalDriven, 1, [&] {
      called.set_value();
      return false;
    });
    ASSERT_TRUE(IsReady(future)) << "round " << round;
  }
}

TEST(Thread, NeverMissesTheChangeOfItsTypeWhileItGoesToSleep) {
  constexpr int kRounds = 200;
  for (int round = 0; round < kRounds; ++round) {
    TEST_THREAD thread;
    ASSERT_TRUE(thread.PingThread(0));
    thread.SetThreadType(kIntervalDriven, 1);
    ASSERT_TRUE(WaitUntil([&] { return thread.Passes() > 0; })) << "round " << round;
  }
}

TEST(Thread, BecomesEventDrivenAgain) {
  TEST_THREAD thread(kIntervalDriven, 1, [] { return true; });
  ASSERT_TRUE(thread.WaitForPasses(1));
  thread.SetThreadType(kEventDriven, 1);
  int item = 0;
  EXPECT_TRUE(thread.Event(&item));
  EXPECT_TRUE(thread.WaitUntilHandled(1));
}

TEST(Thread, ChangesItsOwnTypeInAPass) {
  TEST_THREAD* self = nullptr;
  std::promise<void> ready;
  std::shared_future<void> mayRun = ready.get_future().share();
  TEST_THREAD thread({}, [&](void*) {
    mayRun.wait();
    self->SetThreadType(kIntervalDriven, 1);
    return true;
  });
  self = &thread;
  ready.set_value();
  int item = 0;
  EXPECT_TRUE(thread.Event(&item));
  EXPECT_TRUE(thread.WaitForPasses(3));
}

TEST(Thread, EndsWhenAPassReturnsFalseAndStartsAgain) {
  TEST_THREAD thread(kIntervalDriven, 1, [] { return false; });
  EXPECT_TRUE(thread.WaitForPasses(1));
  EXPECT_TRUE(thread.WaitForState(kThreadDown));
  EXPECT_EQ(thread.Passes(), 1);
  EXPECT_FALSE(thread.PingThread(1000));
  EXPECT_TRUE(thread.Start());
  EXPECT_TRUE(thread.WaitForPasses(2));
}

TEST(Thread, KernelProcessOfAStoppedThreadShutsDown) {
  TEST_THREAD thread;
  thread.Stop();
  EXPECT_FALSE(thread.KernelProcess());
  EXPECT_EQ(thread.ThreadState(), kThreadShuttingDown);
  EXPECT_EQ(thread.Passes(), 0);
}

TEST(Thread, KernelProcessRunsOnePassAndShutsDownWhenThatReturnsFalse) {
  for (const bool goOn : {true, false}) {
    TEST_THREAD thread([=] { return goOn; });
    ASSERT_TRUE(thread.PingThread(0));
    EXPECT_EQ(thread.KernelProcess(), goOn);
    EXPECT_EQ(thread.ThreadState(), goOn ? kThreadWaiting : kThreadShuttingDown);
    EXPECT_EQ(thread.Passes(), 1);
  }
}

TEST(Thread, KernelProcessShutsDownWhenAnItemReturnsFalse) {
  int last = 0;
  GATE gate;
  TEST_THREAD thread({}, [&](void* item) {
    if (item != &last) {
      gate.Pass();
    }
    return item != &last;
  });
  int first = 0;
  std::future<bool> event = std::async(std::launch::async, [&] { return thread.Event(&first); });
  ASSERT_TRUE(gate.WaitUntilReached());  // so the thread itself does not take the next one
  EXPECT_TRUE(thread.Push(&last));
  EXPECT_FALSE(thread.KernelProcess());
  EXPECT_EQ(thread.ThreadState(), kThreadShuttingDown);
  gate.Open();
  EXPECT_TRUE(event.get());
}

// --- ping -------------------------------------------------------------------------------------

TEST(Thread, PingOfAStoppedThreadGivesUpAfterItsTimeOut) {
  TEST_THREAD thread;
  thread.Stop();
  EXPECT_FALSE(thread.PingThread(1));
  EXPECT_FALSE(thread.PingThread(1000));
}

TEST(Thread, PingWaitsMoreThanItsTimeOutInIdleTimes) {
  TEST_THREAD thread;
  thread.Stop();
  thread.SetIdle(50000);  // 5 ms: the waiting exceeds 10 ms with the third pause
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_FALSE(thread.PingThread(100000));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(15));
}

TEST(Thread, PingWithoutATimeOutWaitsUntilTheThreadRuns) {
  for (const long timeout : {0L, -1L}) {
    TEST_THREAD thread;
    thread.Stop();
    std::future<bool> ping =
        std::async(std::launch::async, [&] { return thread.PingThread(timeout); });
    EXPECT_FALSE(IsReady(ping, kSilence));
    EXPECT_TRUE(thread.Start());
    ASSERT_TRUE(IsReady(ping));
    EXPECT_TRUE(ping.get());
  }
}

}  // namespace vorn
