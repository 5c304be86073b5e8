#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <functional>

namespace vorn {

/// A condition variable with a mutex of its own: one thread waits, any thread wakes it.
///
/// There is no stored signalled state: a Set that comes while nobody waits is lost. What a waiter
/// must not miss it names in the condition that it gives to Wait, which is looked at under the same
/// mutex that Set takes.
class CEventClass {
 public:
  CEventClass();
  ~CEventClass();
  CEventClass(const CEventClass&) = delete;
  CEventClass& operator=(const CEventClass&) = delete;

  /// Wakes one waiter. Waits while a woken thread has not called Reset yet, unless the caller is
  /// that thread.
  void Set();

  /// Waits for the next Set. Returns true with the event's mutex still held; Reset releases it.
  bool Wait();

  /// The same, but returns at once when `alreadyDue` holds and looks at it again at each wake-up.
  bool Wait(const std::function<bool()>& alreadyDue);

  /// Releases what Wait has left locked. Only the thread that waited may call it.
  void Reset();

  /// True once the constructor has run; set before the POSIX calls, whose results are not looked
  /// at.
  bool Created() const { return m_created; }

 private:
  pthread_cond_t m_condition;
  pthread_mutex_t m_mutex;
  bool m_created = true;
  /// Number of Sets so far, guarded by m_mutex: tells a wake-up from a spurious one.
  std::uint64_t m_sets = 0;
  /// The thread between Wait and Reset, 0 for none: lets a task wake its own thread.
  std::atomic<pthread_t> m_holder{0};
};

}  // namespace vorn
