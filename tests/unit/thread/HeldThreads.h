#pragma once

#include "tests/unit/thread/TestThreads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <vector>

namespace vorn {

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

}  // namespace vorn
