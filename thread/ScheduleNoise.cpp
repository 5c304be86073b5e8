#include "thread/ScheduleNoise.h"

#ifdef VORN_SCHEDULE_NOISE

#include <sched.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>

namespace vorn {

namespace {

/// One of so many operations is disturbed; nearly all of the run would else go into yields.
constexpr std::uint32_t kOneOf = 4;
/// By so many yields at most.
constexpr std::uint32_t kMostYields = 4;

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
  const std::uint32_t random = Next();
  if (random % kOneOf != 0) {
    return;
  }
  for (std::uint32_t yields = 1 + (random >> 8U) % kMostYields; yields > 0; --yields) {
    sched_yield();
  }
}

}  // namespace vorn

#endif
