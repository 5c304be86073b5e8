#pragma once

#include "sim/line/Descriptor.h"

#include <sys/eventfd.h>

#include <cstdint>
#include <mutex>
#include <utility>
#include <vector>

namespace sim {

/// A bounded queue whose descriptor becomes readable when something waits in it, for a thread that
/// sleeps in poll. Any thread pushes, one takes; its own lock guards it. What does not fit is
/// counted and lost, so that a slow reader never holds back who reports.
template <class ITEM>
class WAKE_QUEUE {
 public:
  static constexpr std::size_t kCapacity = 100000;

  WAKE_QUEUE() : m_wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

  void Push(ITEM item) {
    const std::lock_guard lock(m_mutex);
    if (m_items.size() >= kCapacity) {
      ++m_lost;
      return;
    }
    m_items.push_back(std::move(item));
    if (m_items.size() > 1) {
      return;
    }
    const std::uint64_t one = 1;
    static_cast<void>(!write(m_wake.Get(), &one, sizeof one));
  }

  /// All that waits, oldest first.
  std::vector<ITEM> Take() {
    const std::lock_guard lock(m_mutex);
    std::uint64_t count = 0;
    // It never waits: the descriptor is non-blocking.
    // NOLINTNEXTLINE(clang-analyzer-unix.BlockInCriticalSection)
    static_cast<void>(!read(m_wake.Get(), &count, sizeof count));
    return std::exchange(m_items, {});
  }

  /// How many were lost since the last call.
  std::size_t TakeLost() {
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_lost, 0);
  }

  int Descriptor() const { return m_wake.Get(); }

 private:
  std::mutex m_mutex;
  std::vector<ITEM> m_items;
  std::size_t m_lost = 0;
  const DESCRIPTOR m_wake;
};

}  // namespace sim
