// A worker's end: asked for, waited for, and before another start.

#include "tests/unit/thread/Faults.h"
#include "tests/unit/thread/HeldThreads.h"
#include "thread/Pause.h"
#include "thread/Thread.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <future>
#include <memory>
#include <thread>
#include <vector>

namespace vorn {

namespace {

using support::kSilence;
using support::WaitUntil;

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

}  // namespace

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
  beforeMutexLock = nullptr;
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
