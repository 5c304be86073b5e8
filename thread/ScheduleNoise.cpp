#include "thread/ScheduleNoise.h"

#ifdef VORN_SCHEDULE_NOISE

#include <sched.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>

namespace vorn {

namespace {

/// One of so many operations is disturbed where threads meet; nearly all of the run would else go
/// into yields.
constexpr std::uint32_t kOneOf = 4;
/// And one of so many of a thread that has met nobody for a while.
constexpr std::uint32_t kOneOfWhenIdle = 64;
/// What belongs to a meeting. An idle pass has some 10 operations in a socket's worker, 40 in the
/// serial one, 6 in the master loop.
constexpr std::uint32_t kOperationsOfAMeeting = 300;
/// By so many yields at most.
constexpr std::uint32_t kMostYields = 4;

/// Of the thread's own meeting, which its first operations are as well.
thread_local std::uint32_t operationsLeft = kOperationsOfAMeeting;

std::uint32_t Seed() {
  const char* const text = std::getenv("VORN_SCHEDULE_SEED");  // NOLINT(concurrency-mt-unsafe)
  return text == nullptr ? 1 : static_cast<std::uint32_t>(std::strtoul(text, nullptr, 10));
}

/// A different state for each thread, never zero.
std::uint32_t FirstState() {
  static const std::uint32_t kSeed = Seed();
  static std::atomic<std::uint32_t> threads{0};
  constexpr std::uint32_t kSpread = 0x9E3779B9;
  return (kSeed * 2 + 1) * kSpread + threads.fetch_add(1, std::memory_order_relaxed) * 2;
}

/// Xorshift: no lock, no division, and a thread's own.
std::uint32_t Next() {
  thread_local std::uint32_t state = FirstState() | 1U;
  state ^= state << 13U;
  state ^= state >> 17U;
  state ^= state << 5U;
  return state;
}

}  // namespace

void MakeScheduleNoise() {
  const bool isIdle = operationsLeft == 0;
  operationsLeft -= isIdle ? 0 : 1;
  const std::uint32_t random = Next();
  if (random % (isIdle ? kOneOfWhenIdle : kOneOf) != 0) {
    return;
  }
  for (std::uint32_t yields = 1 + (random >> 8U) % kMostYields; yields > 0; --yields) {
    sched_yield();
  }
}

void MakeMeetingNoise() {
  operationsLeft = kOperationsOfAMeeting;
  MakeScheduleNoise();
}

}  // namespace vorn

#endif
