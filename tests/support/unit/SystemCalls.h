#pragma once

#include <pthread.h>

#include <cstdint>
#include <set>
#include <utility>
#include <vector>

// Programs that link this have `read`, `write`, `ioctl` and `nanosleep` of their own. They do what
// the system's do; for the port of a FAR_END they also let it take part in each call, on the
// calling thread. So an exchange needs no second thread and no luck with the scheduler, and a reply
// can be timed by the count of reads that the daemon itself goes by.

namespace unit {

/// Watches the pauses and the terminal requests of the whole program while it lives; one at a time.
class CALLS_RECORDED {
 public:
  /// A pause, by who made it and for how many nanoseconds.
  using PAUSE = std::pair<pthread_t, std::int64_t>;

  CALLS_RECORDED();
  ~CALLS_RECORDED();
  CALLS_RECORDED(const CALLS_RECORDED&) = delete;
  CALLS_RECORDED& operator=(const CALLS_RECORDED&) = delete;

  std::set<PAUSE> Pauses() const;
  /// Threads that have paused for exactly this long.
  std::size_t ThreadsThatPaused(std::int64_t nanoseconds) const;
  /// The request numbers of ioctl, in order.
  std::vector<unsigned long> Requests() const;
};

}  // namespace unit
