#pragma once

#include <atomic>
#include <cstdio>

// The program is linked so that what the framework asks of the system passes through here first.

/// Failures that the system is to show while they are switched on.
struct FAULTS {
  std::atomic<int> threadCreation{0};         ///< an errno value for pthread_create; 0: none
  std::atomic<bool> childStart{false};        ///< popen starts none
  std::atomic<bool> allocation{false};        ///< the new that reports failure by a null pointer
  std::atomic<unsigned int> threadsAsked{0};  ///< calls of pthread_create so far
};

extern FAULTS faults;  // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)
