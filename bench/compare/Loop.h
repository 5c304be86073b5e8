#pragma once

#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>

namespace bench {

/// CLOCK_MONOTONIC.
using CLOCK = std::chrono::steady_clock;
using TIME = CLOCK::time_point;
using NANOSECONDS = std::chrono::nanoseconds;

/// Why nothing could be measured.
struct FAILURE : std::runtime_error {
  using std::runtime_error::runtime_error;
};
/// With the text of errno.
[[noreturn]] void FailOf(const std::string& what);

/// Owns one file descriptor and closes it once.
class DESCRIPTOR {
 public:
  DESCRIPTOR() = default;
  explicit DESCRIPTOR(int number) : m_number(number) {}
  DESCRIPTOR(DESCRIPTOR&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
  DESCRIPTOR& operator=(DESCRIPTOR&& other) noexcept {
    std::swap(m_number, other.m_number);
    return *this;
  }
  DESCRIPTOR(const DESCRIPTOR&) = delete;
  DESCRIPTOR& operator=(const DESCRIPTOR&) = delete;
  ~DESCRIPTOR() {
    if (m_number >= 0) {
      close(m_number);
    }
  }
  int Get() const { return m_number; }

 private:
  int m_number = -1;
};

/// A timer that is a descriptor: unlike the wait of epoll itself it wakes up to the microsecond,
/// without a change of the process's timer slack, which programs that it starts would inherit.
class TIMER {
 public:
  TIMER();
  /// TIME::max(): not at all.
  void Set(TIME when);
  int Get() const { return m_descriptor.Get(); }

 private:
  DESCRIPTOR m_descriptor;
  TIME m_when = TIME::max();
};

/// Waits in epoll for all that happens at both ends. One thread.
class LOOP {
 public:
  using HANDLER = std::function<void()>;

  LOOP();
  /// The handler is called whenever there is something to read, and, while wanted, room to write.
  void Watch(int descriptor, HANDLER handler);
  void WantRoom(int descriptor, bool wanted);
  /// Before the descriptor is closed.
  void Forget(int descriptor);

  /// Handles what happens until it is done; false: not by that time. Throws FAILURE on SIGINT and
  /// SIGTERM.
  bool Run(TIME until, const std::function<bool()>& done);
  /// Handles what happens in that time.
  void RunFor(NANOSECONDS time);

 private:
  DESCRIPTOR m_events;
  TIMER m_limit;
  std::map<int, HANDLER> m_handlers;
};

/// From now on SIGINT and SIGTERM end LOOP::Run.
void CatchSignals();

}  // namespace bench
