// Five threads that make the pauses of the daemon's five loops, with a client on each interface,
// and do nothing else: what these pauses cost on this machine, at this moment. Runs until it is
// ended.
//
// usage: bare_loops MICROSECONDS
//
// The time is the thread delay of the speed whose pauses are made: 5000 at 1 %, 2525 at 50 %.

#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

namespace {

constexpr int kLoops = 5;
constexpr std::chrono::nanoseconds kBetweenPasses{100};

/// Nine pauses in a pass of all five: each has the thread delay, and the workers' four the
/// framework's pause between passes.
[[noreturn]] void Loop(int number, std::chrono::microseconds threadDelay) {
  // Not in step, as the daemon's are not: one interrupt would wake them all.
  std::this_thread::sleep_for(threadDelay * number / kLoops);
  for (;;) {
    std::this_thread::sleep_for(threadDelay);
    if (number > 0) {
      std::this_thread::sleep_for(kBetweenPasses);
    }
  }
}

}  // namespace

int main(int count, char** arguments) {
  int delay = 0;
  if (count == 2) {
    std::from_chars(arguments[1], arguments[1] + std::strlen(arguments[1]), delay);
  }
  if (delay <= 0) {
    std::fputs("usage: bare_loops MICROSECONDS\n", stderr);
    return 2;
  }
  for (int number = 1; number < kLoops; ++number) {
    std::thread(Loop, number, std::chrono::microseconds(delay)).detach();
  }
  Loop(0, std::chrono::microseconds(delay));
}
