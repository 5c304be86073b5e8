#include "tests/support/BareLoops.h"

#include <pthread.h>

#include <ctime>
#include <stdexcept>

namespace support {
namespace {

constexpr int kLoops = 5;
constexpr std::chrono::nanoseconds kBetweenPasses{100};

}  // namespace

BARE_LOOPS::BARE_LOOPS(std::chrono::microseconds threadDelay) {
  for (int i = 0; i < kLoops; ++i) {
    const bool isWorker = i > 0;
    // Not in step, as the daemon's are not: one interrupt would wake them all.
    const auto lead = threadDelay * i / kLoops;
    m_threads.emplace_back([threadDelay, isWorker, lead](const std::stop_token& end) {
      std::this_thread::sleep_for(lead);
      while (!end.stop_requested()) {
        std::this_thread::sleep_for(threadDelay);
        if (isWorker) {
          std::this_thread::sleep_for(kBetweenPasses);
        }
      }
    });
  }
}

std::chrono::nanoseconds BARE_LOOPS::ProcessorTime() {
  std::chrono::nanoseconds total{};
  for (std::jthread& thread : m_threads) {
    clockid_t clock{};
    timespec time{};
    if (pthread_getcpuclockid(thread.native_handle(), &clock) != 0 ||
        clock_gettime(clock, &time) != 0) {
      throw std::runtime_error("a thread's processor time is not to be had");
    }
    total += std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
  }
  return total;
}

}  // namespace support
