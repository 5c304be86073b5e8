// A worker from its constructor on.

#include "tests/unit/thread/Faults.h"
#include "tests/unit/thread/TestThreads.h"
#include "thread/Thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <functional>
#include <future>
#include <thread>
#include <vector>

namespace vorn {

TEST(Thread, HasTheValuesThatAreDocumented) {
  EXPECT_EQ(static_cast<int>(kEventDriven), 0);
  EXPECT_EQ(static_cast<int>(kIntervalDriven), 1);
  EXPECT_EQ(static_cast<int>(kThreadBusy), 0);
  EXPECT_EQ(static_cast<int>(kThreadWaiting), 1);
  EXPECT_EQ(static_cast<int>(kThreadDown), 2);
  EXPECT_EQ(static_cast<int>(kThreadShuttingDown), 3);
  EXPECT_EQ(static_cast<int>(kThreadFault), 4);
  EXPECT_EQ(static_cast<unsigned int>(kMutexCreationFailed), 0x01U);
  EXPECT_EQ(static_cast<unsigned int>(kEventCreationFailed), 0x02U);
  EXPECT_EQ(static_cast<unsigned int>(kThreadCreationFailed), 0x04U);
  EXPECT_EQ(static_cast<unsigned int>(kIllegalEvent), 0x10U);
  EXPECT_EQ(static_cast<unsigned int>(kStackAllocationFailed), 0x20U);
}

TEST(Thread, RunsFromItsConstructorOnWithoutBeingCalled) {
  TEST_THREAD thread;
  EXPECT_TRUE(thread.PingThread(0));
  EXPECT_TRUE(thread.WaitForState(kThreadWaiting));
  EXPECT_EQ(thread.ErrorFlags(), 0U);
  EXPECT_EQ(thread.GetEventsPending(), 0);
  EXPECT_TRUE(thread.Empty());
  EXPECT_EQ(thread.Passes(), 0);
}

TEST(Thread, StartOfARunningThreadIsTrueAndMakesNoSecondOne) {
  TEST_THREAD thread;
  const unsigned int before = faults.threadsAsked;
  EXPECT_TRUE(thread.Start());
  EXPECT_TRUE(thread.PingThread(0));
  EXPECT_TRUE(thread.Start());
  EXPECT_EQ(faults.threadsAsked, before);
}

TEST(Thread, StartedByManyAtOnceIsOneThread) {
  constexpr int kStarters = 4;
  constexpr int kRounds = 50;
  TEST_THREAD thread;
  for (int round = 0; round < kRounds; ++round) {
    thread.Stop();
    const unsigned int before = faults.threadsAsked;
    std::vector<std::thread> starters;
    starters.reserve(kStarters);
    std::atomic<int> started{0};
    for (int i = 0; i < kStarters; ++i) {
      starters.emplace_back([&] { started += thread.Start() ? 1 : 0; });
    }
    for (std::thread& starter : starters) {
      starter.join();
    }
    ASSERT_EQ(started, kStarters);
    ASSERT_EQ(faults.threadsAsked, before + 1);
    ASSERT_TRUE(thread.PingThread(0));
  }
}

TEST(Thread, AChangeOfTypeNeedNotWaitForThePassThatItHasBegun) {
  GATE pass;
  GATE beforeItsWait;
  // Each takes the thread's lock first, then the event's: the new thread to wait, the other to wake
  // it.
  const std::function<void()> holdBeforeItsWait = [&] {
    beforeMutexLock = [&] { beforeMutexLock = [&] { beforeItsWait.Pass(); }; };
  };
  faults.threadStart = &holdBeforeItsWait;
  TEST_THREAD thread([&] {
    pass.Pass();
    return true;
  });
  faults.threadStart = nullptr;
  ASSERT_TRUE(beforeItsWait.WaitUntilReached());
  const auto letItSeeTheNewType = [&] {
    beforeItsWait.Open();
    EXPECT_TRUE(pass.WaitUntilReached());
  };
  std::future<void> change = std::async(std::launch::async, [&] {
    beforeMutexLock = [&] { beforeMutexLock = letItSeeTheNewType; };
    thread.SetThreadType(kIntervalDriven, 1);
  });
  EXPECT_TRUE(IsReady(change));
  pass.Open();
}

TEST(Thread, BlocksTheProcessesSignalsButNotItsOwnFaults) {
  std::promise<sigset_t> mask;
  TEST_THREAD thread([&] {
    sigset_t blocked;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    mask.set_value(blocked);
    return false;
  });
  thread.SetThreadType(kIntervalDriven, 1);
  std::future<sigset_t> future = mask.get_future();
  ASSERT_TRUE(IsReady(future));
  const sigset_t blocked = future.get();
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGUSR1, SIGALRM, SIGCHLD, SIGWINCH}) {
    EXPECT_EQ(sigismember(&blocked, signal), 1) << signal;
  }
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS}) {
    EXPECT_EQ(sigismember(&blocked, fault), 0) << fault;
  }
  // What it runs inherits the block, and is to end when nobody reads it.
  EXPECT_EQ(sigismember(&blocked, SIGPIPE), 0);
}

TEST(Thread, LeavesItsMakersSignalsAsTheyWere) {
  sigset_t before;
  pthread_sigmask(SIG_BLOCK, nullptr, &before);
  const TEST_THREAD thread;
  sigset_t after;
  pthread_sigmask(SIG_BLOCK, nullptr, &after);
  for (int signal = 1; signal < NSIG; ++signal) {
    EXPECT_EQ(sigismember(&before, signal), sigismember(&after, signal)) << signal;
  }
}

TEST(Thread, SetPriorityDoesNothing) {
  TEST_THREAD thread;
  thread.SetPriority(10);
  EXPECT_EQ(thread.ErrorFlags(), 0U);
  EXPECT_TRUE(thread.PingThread(0));
}

}  // namespace vorn
