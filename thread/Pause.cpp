#include "thread/Pause.h"

#include <chrono>
#include <cstdio>
#include <ctime>
#include <thread>

namespace vorn {

void Sleep(unsigned int n) {
  // The unit is 100 ns; beyond the valid range any invalid value will do, and the product must not
  // wrap into a valid one where long has 32 bits.
  constexpr unsigned int kInvalidFrom = 10'000'000;
  timespec request{};
  request.tv_nsec =
      n < kInvalidFrom ? static_cast<decltype(request.tv_nsec)>(n * 100) : 1'000'000'000;
  nanosleep(&request, nullptr);
}

FILE* StartSleepCommand(int seconds) {
  char command[100];
  std::snprintf(command, sizeof command, "sleep %d", seconds);
  // "e": the pipe's own end must not reach the children of other threads' pauses.
  return popen(command, "re");
}

void sleepsec(int seconds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  FILE* const command = StartSleepCommand(seconds);
  if (command == nullptr || pclose(command) != 0) {
    std::this_thread::sleep_until(end);
  }
}

void PauseUs(std::int32_t delayUs) {
  if (delayUs <= 0) {
    return;
  }
  timespec request{};
  request.tv_sec = delayUs / 1'000'000;
  request.tv_nsec = static_cast<decltype(request.tv_nsec)>(delayUs % 1'000'000) * 1000;
  nanosleep(&request, nullptr);
}

}  // namespace vorn
