#pragma once

#include "tests/support/Wait.h"

#include <condition_variable>
#include <mutex>

namespace vorn {

namespace unit {

/// Holds whoever passes while it is shut; tells that somebody stands before it.
class GATE {
 public:
  void Pass() {
    std::unique_lock lock(m_lock);
    m_isReached = true;
    m_changed.notify_all();
    m_changed.wait(lock, [&] { return m_isOpen; });
  }

  void Open() {
    const std::lock_guard lock(m_lock);
    m_isOpen = true;
    m_changed.notify_all();
  }

  bool WaitUntilReached() {
    std::unique_lock lock(m_lock);
    return m_changed.wait_for(lock, support::kLimit, [&] { return m_isReached; });
  }

 private:
  std::mutex m_lock;
  std::condition_variable m_changed;
  bool m_isOpen = false;
  bool m_isReached = false;
};

}  // namespace unit

}  // namespace vorn
