#pragma once

#include <atomic>
#include <functional>

namespace vorn {

// The program is linked so that what the framework asks of the system passes through here first.

/// Failures that the system is to show while they are switched on.
struct FAULTS {
  std::atomic<int> threadCreation{0};         ///< an errno value for pthread_create; 0: none
  std::atomic<bool> allocation{false};        ///< the new that reports failure by a null pointer
  std::atomic<unsigned int> threadsAsked{0};  ///< calls of pthread_create so far
  /// What a new thread does before the function that it is made for.
  std::atomic<const std::function<void()>*> threadStart{nullptr};
};

extern FAULTS faults;  // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)

/// Called by this thread before it takes a mutex, once: to set it anew is up to the function.
extern thread_local std::function<void()> beforeMutexLock;

}  // namespace vorn
