#pragma once

#include <chrono>
#include <thread>
#include <vector>

namespace support {

/// Five threads that make the pauses of the daemon's five loops, with a client on each interface,
/// and do nothing else, from the constructor to the destructor: what these pauses cost on this
/// machine, at this moment. On a virtual machine within another one it was 30 to 50 us of
/// processor time each.
///
/// Used by one thread.
class BARE_LOOPS {
 public:
  /// The delay is that of each loop's pass.
  explicit BARE_LOOPS(std::chrono::microseconds threadDelay);

  /// Of all five so far.
  std::chrono::nanoseconds ProcessorTime();

 private:
  std::vector<std::jthread> m_threads;
};

/// Pauses in a pass of each of the five: the thread delay, and in the workers' four the framework's
/// pause between passes.
constexpr int kPausesOfFiveLoops = 9;

}  // namespace support
