// What a worker is handed: items, and tasks, which it runs itself.

#include "tests/unit/thread/HeldThreads.h"
#include "thread/Thread.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <future>
#include <thread>
#include <vector>

namespace vorn {

namespace {

using support::kLimit;
using support::WaitUntil;

constexpr int kStackLimit = 99;

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

class TASK_RUNNER : public CThread {
 public:
  ~TASK_RUNNER() { StopAndJoin(); }
  using CThread::OnTask;
  bool OnTask() override { return true; }
};

}  // namespace

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

}  // namespace vorn
