#pragma once

#include <chrono>
#include <thread>

namespace support {

using std::chrono::milliseconds;

#if defined(VORN_EMULATOR)
constexpr bool kEmulated = true;
#else
constexpr bool kEmulated = false;
#endif

// The sanitizers make everything several times slower and larger, and so does counting what runs,
// and an emulator.
#if defined(VORN_SANITIZE) || defined(VORN_COVERAGE) || defined(VORN_EMULATOR)
constexpr bool kInstrumented = true;
#else
constexpr bool kInstrumented = false;
#endif

/// How long anything may take before a test calls it lost. Reached only by a failing test.
constexpr milliseconds kLimit{kInstrumented ? 60'000 : 20'000};

/// How long nothing may happen before a test believes that nothing will. Used where the absence is
/// the behaviour and no later event proves it.
constexpr milliseconds kSilence{kInstrumented ? 600 : 200};

/// True as soon as holds() is, looking every 2 ms; false when it still is not after the limit.
template <class PREDICATE>
bool WaitUntil(PREDICATE holds, milliseconds limit = kLimit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!holds()) {
    if (std::chrono::steady_clock::now() >= end) {
      return holds();
    }
    std::this_thread::sleep_for(milliseconds(2));
  }
  return true;
}

}  // namespace support
