#include "tests/unit/thread/Faults.h"
#include "tests/unit/thread/TestThreads.h"
#include "thread/Pause.h"
#include "thread/Thread.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <future>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace vorn {

namespace {

using support::kLimit;
using support::kSilence;
using support::WaitUntil;

constexpr int kStackLimit = 99;

template <class T>
bool IsReady(const std::future<T>& future, std::chrono::milliseconds limit = kLimit) {
  return future.wait_for(limit) == std::future_status::ready;
}

/// An event-driven thread that stands in the middle of an item's work, before a gate.
class HELD_THREAD {
 public:
  HELD_THREAD() {
    m_event = std::async(std::launch::async, [this] { return thread.Event(&m_first); });
    EXPECT_TRUE(m_gate.WaitUntilReached());
  }
  ~HELD_THREAD() { Release(); }
  HELD_THREAD(const HELD_THREAD&) = delete;
  HELD_THREAD& operator=(const HELD_THREAD&) = delete;

  void Release() { m_gate.Open(); }
  /// What has been handled after the item that held the thread.
  std::vector<void*> HandledSince() const {
    std::vector<void*> handled = thread.Handled();
    handled.erase(handled.begin());
    return handled;
  }

 private:
  GATE m_gate;
  int m_first = 0;

 public:
  TEST_THREAD thread{{}, [this](void* item) {
                       if (item == &m_first) {
                         m_gate.Pass();
                       }
                       return true;
                     }};

 private:
  std::future<bool> m_event;  // its wake-up waits for the end of the pass
};

/// An interval-driven thread that stands in the middle of a pass.
struct HELD_INTERVAL_THREAD {
  HELD_INTERVAL_THREAD() { isMade = true; }
  ~HELD_INTERVAL_THREAD() { gate.Open(); }
  /// The first pass may begin before the change of type is over, which then waits for its end.
  std::atomic<bool> isMade{false};
  GATE gate;
  TEST_THREAD thread{kIntervalDriven, 1, [this] {
                       if (isMade) {
                         gate.Pass();
                       }
                       return true;
                     }};
};

class RECORDING_TASK : public CTask {
 public:
  explicit RECORDING_TASK(bool result = true) : m_result(result) {}
  bool Task() override {
    statusInside = TaskStatus();
    threadInside = pthread_self();
    return m_result;
  }

  std::atomic<TaskStatus_t> statusInside{kTaskNew};
  std::atomic<pthread_t> threadInside{0};

 private:
  const bool m_result;
};

/// Holds its thread at a gate on the way out, when the kernel loop is over.
struct HELD_END {
  ~HELD_END() {
    if (gate != nullptr) {
      gate->Pass();
    }
  }
  GATE* gate = nullptr;
};
thread_local HELD_END heldEnd;

class TASK_RUNNER : public CThread {
 public:
  ~TASK_RUNNER() { StopAndJoin(); }
  using CThread::OnTask;
  bool OnTask() override { return true; }
};

}  // namespace

// --- birth ------------------------------------------------------------------------------------

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

// --- default work -----------------------------------------------------------------------------

TEST(Thread, PassesByDefaultPrintThatTheThreadIsAlive) {
  CThread thread;
  testing::internal::CaptureStdout();
  const bool goOn = thread.OnTask();
  std::fflush(stdout);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "\nthread is alive\n");
  EXPECT_TRUE(goOn);
}

TEST(Thread, RunsATaskByDefaultAndReturnsItsResult) {
  CThread thread;
  for (const bool result : {true, false}) {
    RECORDING_TASK task(result);
    EXPECT_EQ(thread.OnTask(static_cast<CTask*>(&task)), result);
    EXPECT_EQ(task.statusInside, kTaskRunning);
    EXPECT_EQ(task.TaskStatus(), kTaskCompleted);
  }
}

TEST(Thread, RunsATaskThatItIsHandedOnItself) {
  TASK_RUNNER thread;
  RECORDING_TASK task;
  ASSERT_TRUE(thread.PingThread(0));
  EXPECT_TRUE(thread.Event(&task));
  EXPECT_TRUE(WaitUntil([&] { return task.TaskStatus() == kTaskCompleted; }));
  EXPECT_EQ(task.statusInside, kTaskRunning);
  EXPECT_NE(task.threadInside, pthread_self());
  EXPECT_EQ(task.ThreadId(), task.threadInside);
}

TEST(Thread, EndsWhenATaskReturnsFalse) {
  TASK_RUNNER thread;
  RECORDING_TASK task(false);
  EXPECT_TRUE(thread.Event(&task));
  EXPECT_TRUE(WaitUntil([&] { return task.TaskStatus() == kTaskCompleted; }));
  EXPECT_TRUE(WaitUntil([&] { return thread.ThreadState() == kThreadDown; }));
}

TEST(Thread, TaskIsQueuedWhileItWaits) {
  HELD_THREAD held;
  RECORDING_TASK task;
  std::future<bool> event =
      std::async(std::launch::async, [&] { return held.thread.Event(&task); });
  EXPECT_TRUE(WaitUntil([&] { return held.thread.GetEventsPending() == 1; }));
  EXPECT_EQ(task.TaskStatus(), kTaskQueued);
  EXPECT_NE(task.ThreadId(), pthread_t{0});
  held.Release();
  EXPECT_TRUE(event.get());
}

TEST(Thread, RefusedTaskKeepsItsStatus) {
  HELD_THREAD held;
  int item = 0;
  for (int i = 0; i < kStackLimit; ++i) {
    EXPECT_TRUE(held.thread.Push(&item));
  }
  RECORDING_TASK task;
  EXPECT_FALSE(held.thread.Event(&task));
  EXPECT_EQ(task.TaskStatus(), kTaskNew);
}

// --- events -----------------------------------------------------------------------------------

TEST(Thread, HandlesAnEventAndWaitsAgain) {
  TEST_THREAD thread;
  int item = 0;
  EXPECT_TRUE(thread.Event(&item));
  EXPECT_TRUE(thread.WaitUntilHandled(1));
  EXPECT_EQ(thread.Handled(), (std::vector<void*>{&item}));
  EXPECT_TRUE(thread.WaitForState(kThreadWaiting));
  EXPECT_TRUE(thread.Empty());
}

TEST(Thread, NeverMissesAnEvent) {
  constexpr int kRounds = 2000;
  TEST_THREAD thread;
  int item = 0;
  for (int round = 1; round <= kRounds; ++round) {
    ASSERT_TRUE(thread.Event(&item));
    const auto end = std::chrono::steady_clock::now() + kLimit;
    while (!thread.Empty()) {
      ASSERT_LT(std::chrono::steady_clock::now(), end) << "round " << round;
      std::this_thread::yield();
    }
  }
  EXPECT_TRUE(thread.WaitUntilHandled(kRounds));
}

TEST(Thread, HandlesTheLatestEventFirst) {
  HELD_THREAD held;
  std::array<int, 3> items{};
  for (int& item : items) {
    EXPECT_TRUE(held.thread.Push(&item));
  }
  EXPECT_EQ(held.thread.GetEventsPending(), 3);
  EXPECT_FALSE(held.thread.Empty());
  held.Release();
  EXPECT_TRUE(held.thread.WaitUntilHandled(4));
  EXPECT_EQ(held.HandledSince(), (std::vector<void*>{&items[2], &items[1], &items[0]}));
}

TEST(Thread, Refuses100thEvent) {
  HELD_THREAD held;
  std::array<int, kStackLimit> items{};
  for (int& item : items) {
    EXPECT_TRUE(held.thread.Push(&item));
  }
  int oneMore = 0;
  EXPECT_FALSE(held.thread.Push(&oneMore));
  EXPECT_FALSE(held.thread.Event(&oneMore));
  EXPECT_EQ(held.thread.GetEventsPending(), kStackLimit);
  EXPECT_EQ(held.thread.ErrorFlags(), 0U);
  held.Release();
  EXPECT_TRUE(held.thread.WaitUntilHandled(1 + kStackLimit));
  const std::vector<void*> handled = held.HandledSince();
  ASSERT_EQ(handled.size(), items.size());
  EXPECT_EQ(handled.front(), &items.back());
  EXPECT_EQ(handled.back(), &items.front());
}

TEST(Thread, NullItemIsAcceptedAndNotStoredAlsoByAFullStack) {
  TEST_THREAD thread;
  thread.Stop();
  EXPECT_TRUE(thread.Push(nullptr));
  EXPECT_EQ(thread.GetEventsPending(), 0);
  int item = 0;
  for (int i = 0; i < kStackLimit; ++i) {
    EXPECT_TRUE(thread.Push(&item));
  }
  EXPECT_TRUE(thread.Push(nullptr));
  EXPECT_EQ(thread.GetEventsPending(), kStackLimit);
}

TEST(Thread, NullEventOnlyWakes) {
  TEST_THREAD thread;
  // One that comes while nobody waits is lost.
  EXPECT_TRUE(WaitUntil([&] {
    EXPECT_TRUE(thread.Event(static_cast<void*>(nullptr)));
    EXPECT_TRUE(thread.Event(static_cast<CTask*>(nullptr)));
    return thread.Passes() > 0;
  }));
  EXPECT_TRUE(thread.Handled().empty());
}

TEST(Thread, PopTakesTheLatestItem) {
  TEST_THREAD thread;
  thread.Stop();
  std::array<int, 2> items{};
  EXPECT_TRUE(thread.Push(items.data()));
  EXPECT_TRUE(thread.Push(&items[1]));
  EXPECT_TRUE(thread.Pop());
  EXPECT_EQ(thread.GetEventsPending(), 1);
  EXPECT_TRUE(thread.Pop());
  EXPECT_TRUE(thread.Empty());
}

TEST(Thread, KeepsWhatItDidNotHandleWhenAnItemEndsIt) {
  std::array<int, 3> items{};
  TEST_THREAD thread({}, [&](void* item) { return item != &items[1]; });
  thread.Stop();
  for (int& item : items) {
    EXPECT_TRUE(thread.Push(&item));
  }
  EXPECT_TRUE(thread.Start());
  EXPECT_TRUE(thread.WaitUntilHandled(2));
  EXPECT_TRUE(thread.WaitForState(kThreadDown));
  EXPECT_EQ(thread.Handled(), (std::vector<void*>{&items[2], &items[1]}));
  EXPECT_EQ(thread.GetEventsPending(), 1);
}

TEST(Thread, HandlesWhatWasPushedBeforeItsStart) {
  TEST_THREAD thread;
  thread.Stop();
  int item = 0;
  EXPECT_TRUE(thread.Event(&item));
  EXPECT_TRUE(thread.Start());
  EXPECT_TRUE(thread.WaitUntilHandled(1));
}

TEST(Thread, IntervalDrivenThreadRefusesEventsAndTasksAndItsNextPassKeepsTheFlag) {
  RECORDING_TASK task;
  int item = 0;
  const std::function<bool(TEST_THREAD&)> events[] = {
      [&](TEST_THREAD& thread) { return thread.Event(&item); },
      [&](TEST_THREAD& thread) { return thread.Event(static_cast<void*>(nullptr)); },
      [&](TEST_THREAD& thread) { return thread.Event(&task); }};
  for (const auto& event : events) {
    HELD_INTERVAL_THREAD held;
    ASSERT_TRUE(held.gate.WaitUntilReached());
    EXPECT_EQ(held.thread.ErrorFlags(), 0U);
    EXPECT_FALSE(event(held.thread));
    EXPECT_EQ(held.thread.ThreadState(), kThreadFault);
    EXPECT_EQ(held.thread.GetEventsPending(), 0);
    held.gate.Open();
    EXPECT_TRUE(WaitUntil([&] { return held.thread.ThreadState() != kThreadFault; }));
    EXPECT_EQ(held.thread.ErrorFlags(), 0x10U);
  }
  EXPECT_EQ(task.TaskStatus(), kTaskNew);
}

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

// --- stopping ---------------------------------------------------------------------------------

TEST(Thread, IsDownAfterStopAndAfterAnotherOne) {
  TEST_THREAD thread;
  for (int stop = 0; stop < 2; ++stop) {
    thread.Stop();
    EXPECT_EQ(thread.ThreadState(), kThreadDown);
    EXPECT_EQ(thread.ErrorFlags(), 0U);
  }
}

TEST(Thread, StopOfAnIntervalDrivenThreadLeavesTheFlagOfTheRefusedEvent) {
  // Also where the thread ends at once: with schedule noise in one round of ten.
  constexpr int kRounds = 100;
  for (int round = 0; round < kRounds; ++round) {
    TEST_THREAD thread(kIntervalDriven, 1, [] { return true; });
    ASSERT_TRUE(thread.WaitForPasses(1));
    thread.Stop();
    ASSERT_EQ(thread.ThreadState(), kThreadDown);
    ASSERT_EQ(thread.ErrorFlags(), 0x10U);
  }
}

TEST(Thread, IsDownAfterAStopWhoseEventIsRefusedWhenTheThreadHasEndedAlready) {
  TEST_THREAD thread(kIntervalDriven, 1, [] { return true; });
  ASSERT_TRUE(thread.WaitForPasses(1));
  // The stop takes the lock to ask for the end, then to offer its event.
  beforeMutexLock = [&] {
    beforeMutexLock = [&] { EXPECT_TRUE(thread.WaitForState(kThreadDown)); };
  };
  thread.Stop();
  EXPECT_EQ(thread.ErrorFlags(), 0x10U);
  EXPECT_EQ(thread.ThreadState(), kThreadDown);
}

TEST(Thread, RunsNoPassAfterStop) {
  TEST_THREAD thread(kIntervalDriven, 1, [] { return true; });
  ASSERT_TRUE(thread.WaitForPasses(1));
  thread.Stop();
  const int passes = thread.Passes();
  Sleep(100000);
  EXPECT_EQ(thread.Passes(), passes);
}

TEST(Thread, StopWaitsForTheEndOfThePass) {
  HELD_INTERVAL_THREAD held;
  ASSERT_TRUE(held.gate.WaitUntilReached());
  std::future<void> stopped = std::async(std::launch::async, [&] { held.thread.Stop(); });
  EXPECT_FALSE(IsReady(stopped, kSilence));
  held.gate.Open();
  EXPECT_TRUE(IsReady(stopped));
  EXPECT_EQ(held.thread.ThreadState(), kThreadDown);
}

TEST(Thread, StopHandlesTheEventsThatAreQueued) {
  HELD_THREAD held;
  std::array<int, 2> items{};
  EXPECT_TRUE(held.thread.Push(items.data()));
  EXPECT_TRUE(held.thread.Push(&items[1]));
  std::future<void> stopped = std::async(std::launch::async, [&] { held.thread.Stop(); });
  EXPECT_TRUE(WaitUntil([&] { return held.thread.StopRequested(); }));
  held.Release();
  EXPECT_TRUE(IsReady(stopped));
  EXPECT_EQ(held.thread.Handled().size(), 3U);
}

TEST(Thread, StopFromItsOwnPassOnlyAsks) {
  TEST_THREAD* self = nullptr;
  std::atomic<bool> ready{false};
  TEST_THREAD thread(kIntervalDriven, 1, [&] {
    if (ready) {
      self->Stop();
    }
    return true;
  });
  self = &thread;
  ASSERT_TRUE(thread.WaitForPasses(1));
  ready = true;
  EXPECT_TRUE(thread.WaitForState(kThreadDown));
}

TEST(Thread, StopThatComesBeforeTheThreadHasBegunEndsIt) {
  constexpr int kRounds = 1000;
  for (int round = 0; round < kRounds; ++round) {
    TEST_THREAD thread;
    thread.Stop();
    ASSERT_EQ(thread.ThreadState(), kThreadDown) << "round " << round;
    ASSERT_EQ(thread.Passes(), 0);
  }
}

TEST(Thread, RunsAgainAfterStopAndStart) {
  constexpr int kRounds = 200;
  TEST_THREAD thread;
  int item = 0;
  for (int round = 0; round < kRounds; ++round) {
    thread.Stop();
    ASSERT_EQ(thread.ThreadState(), kThreadDown);
    ASSERT_TRUE(thread.Start());
    ASSERT_TRUE(thread.PingThread(0));
    ASSERT_TRUE(thread.Event(&item));
  }
  EXPECT_TRUE(thread.WaitUntilHandled(kRounds));
}

TEST(Thread, StoppedByManyAtOnceIsDownForEach) {
  constexpr int kStoppers = 4;
  constexpr int kRounds = 50;
  for (int round = 0; round < kRounds; ++round) {
    TEST_THREAD thread(kIntervalDriven, 1, [] { return true; });
    std::vector<std::thread> stoppers;
    stoppers.reserve(kStoppers);
    std::atomic<int> down{0};
    for (int i = 0; i < kStoppers; ++i) {
      stoppers.emplace_back([&] {
        thread.Stop();
        ++down;
      });
    }
    for (std::thread& stopper : stoppers) {
      stopper.join();
    }
    ASSERT_EQ(down, kStoppers);
  }
}

TEST(Thread, StopRacesWithEventsAndTypeChanges) {
  constexpr int kRounds = 200;
  for (int round = 0; round < kRounds; ++round) {
    TEST_THREAD thread;
    int item = 0;
    std::thread sender([&] { thread.Event(&item); });
    std::thread changer([&] { thread.SetThreadType(kIntervalDriven, 1); });
    thread.Stop();
    sender.join();
    changer.join();
    thread.StopAndJoin();
    ASSERT_NE(thread.ThreadState(), kThreadBusy);
  }
}

TEST(Thread, RequestStopReturnsBeforeThePassHasEnded) {
  HELD_INTERVAL_THREAD held;
  ASSERT_TRUE(held.gate.WaitUntilReached());
  EXPECT_FALSE(held.thread.StopRequested());
  held.thread.RequestStop();
  EXPECT_TRUE(held.thread.StopRequested());
  EXPECT_EQ(held.thread.ThreadState(), kThreadBusy);
}

TEST(Thread, EndsAfterThePassInWhichItsEndWasRequested) {
  TEST_THREAD thread(kIntervalDriven, 1, [] { return true; });
  ASSERT_TRUE(thread.WaitForPasses(1));
  thread.RequestStop();
  EXPECT_TRUE(thread.WaitForState(kThreadDown));
}

TEST(Thread, IsDestroyedInEveryState) {
  constexpr int kRounds = 200;
  for (int round = 0; round < kRounds; ++round) {
    { const TEST_THREAD justMade; }
    {
      const TEST_THREAD interval(kIntervalDriven, 1, [] { return true; });
    }
    {
      const TEST_THREAD ended(kIntervalDriven, 1, [] { return false; });
    }
    {
      TEST_THREAD waiting;
      ASSERT_TRUE(waiting.PingThread(0));
    }
    {
      TEST_THREAD stopped;
      stopped.Stop();
    }
    {
      TEST_THREAD withEvent;
      withEvent.Event(&round);
    }
    { const CThread plain; }
  }
}

TEST(Thread, DestructionWaitsForThePass) {
  GATE gate;
  auto thread = std::make_unique<TEST_THREAD>(kIntervalDriven, 1, [&] {
    gate.Pass();
    return true;
  });
  ASSERT_TRUE(gate.WaitUntilReached());
  std::future<void> destroyed = std::async(std::launch::async, [&] { thread.reset(); });
  EXPECT_FALSE(IsReady(destroyed, kSilence));
  gate.Open();
  EXPECT_TRUE(IsReady(destroyed));
}

TEST(Thread, DestructionWaitsUntilTheThreadIsGone) {
  GATE gate;
  auto thread = std::make_unique<TEST_THREAD>(kIntervalDriven, 1, [&] {
    heldEnd.gate = &gate;
    return true;
  });
  ASSERT_TRUE(thread->WaitForPasses(1));
  std::future<void> destroyed = std::async(std::launch::async, [&] { thread.reset(); });
  ASSERT_TRUE(gate.WaitUntilReached());
  EXPECT_FALSE(IsReady(destroyed, kSilence));
  gate.Open();
  EXPECT_TRUE(IsReady(destroyed));
}

TEST(Thread, StartAfterItsEndWaitsUntilTheOldThreadIsGone) {
  GATE gate;
  std::atomic<bool> isOld{true};
  TEST_THREAD thread(kIntervalDriven, 1, [&] {
    heldEnd.gate = isOld ? &gate : nullptr;
    return !isOld;
  });
  ASSERT_TRUE(gate.WaitUntilReached());
  isOld = false;
  std::future<bool> started = std::async(std::launch::async, [&] { return thread.Start(); });
  EXPECT_FALSE(IsReady(started, kSilence));
  gate.Open();
  ASSERT_TRUE(IsReady(started));
  EXPECT_TRUE(started.get());
  EXPECT_TRUE(thread.WaitForPasses(2));
}

TEST(Thread, OnceItIsGoneItsHandleMayBeAnotherThreads) {
  auto gone = std::make_unique<TEST_THREAD>();
  gone->StopAndJoin();
  TEST_THREAD other;  // gets the stack, and with it the handle, of the one that is gone
  ASSERT_TRUE(other.PingThread(0));
  std::future<void> destroyed = std::async(std::launch::async, [&] { gone.reset(); });
  EXPECT_TRUE(IsReady(destroyed));
  other.Stop();  // lets the future end where it waits for the wrong one
}

}  // namespace vorn
