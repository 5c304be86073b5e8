#pragma once

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

namespace support {

/// Five threads that make the pauses of the daemon's five loops and do nothing else, from the
/// constructor to the destructor: what these pauses cost on this machine, at this moment. A pause
/// takes 5 us of a processor's time here, and 50 us on a virtual machine within another one.
///
/// Used by one thread.
class BARE_LOOPS {
 public:
  /// Of each pass, as the speed has it. With it, and a wake-up after each, a pass of all five loops
  /// has kPausesOfAPass.
  explicit BARE_LOOPS(std::chrono::microseconds threadDelay);
  ~BARE_LOOPS();
  BARE_LOOPS(const BARE_LOOPS&) = delete;
  BARE_LOOPS& operator=(const BARE_LOOPS&) = delete;

  /// Of all five so far.
  std::chrono::nanoseconds ProcessorTime();

  /// The thread delay of each loop, and in the workers' four the framework's pause between passes.
  static constexpr int kPausesOfAPass = 9;

 private:
  std::atomic<bool> m_isEnding{false};
  std::vector<std::thread> m_threads;
};

}  // namespace support
