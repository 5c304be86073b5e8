#pragma once

#include "tests/support/Wait.h"
#include "thread/Pauses.h"

#include <atomic>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <thread>
#include <utility>
#include <vector>

namespace vorn {

namespace unit {

/// Pauses that take no time unless the test says so, counted, and held where the test wants to
/// stand in one. Each thread has a clock of its own, which its pauses alone move: those of others,
/// who wait for seconds meanwhile, age nothing that it watches. Any thread.
///
/// A loop that runs on a thread of its own can rest by the machine's means all the same: then it
/// wakes up for its work alone, and the clock is the machine's.
class FAKE_PAUSES final : public PAUSES {
 public:
  /// `longestDelayUs`: thread delays take their time up to here, on the clock too, so that the
  /// loops of several threads leave the machine to each other. 0: they take none but on the clock.
  explicit FAKE_PAUSES(std::int32_t longestDelayUs = 0) : m_longestDelayUs(longestDelayUs) {}

  /// Before the first rest.
  void RestForReal() { m_restsForReal = true; }
  /// From now on the machine's clock stands still for who asks here: nothing becomes late by it,
  /// until RunClock.
  void StopClock();
  void RunClock();

  /// Else only the delay: a loop looks by itself whether there is something to do, pass after pass.
  void Rest(REST& rest) override;
  void DelayUs(std::int32_t delayUs) override;
  void Seconds(int seconds) override;
  void SecondsUnless(int seconds, const std::function<bool()>& isOver) override;
  CLOCK::time_point Now() override;

  /// What a pause of so many seconds takes.
  void SetLength(int seconds, std::chrono::milliseconds length);
  void SetLongestDelayUs(std::int32_t longestUs);

  /// Pauses of so many seconds do not end, those under way included, until Release.
  void Hold(int seconds);
  void Release(int seconds);

  /// Pauses begun so far, in order: their seconds.
  std::vector<int> Begun() const;
  int CountBegun(int seconds) const;
  /// Waits until at least count pauses of so many seconds have begun.
  bool WaitUntilBegun(int seconds, int count = 1) const;
  /// Threads that have made this thread delay.
  std::size_t ThreadsThatDelayed(std::int32_t delayUs) const;
  /// Thread delays made so far, those of nothing left out.
  std::size_t Delays() const;

 private:
  SYSTEM_PAUSES m_real;
  std::atomic<bool> m_restsForReal{false};
  mutable std::mutex m_lock;
  mutable std::condition_variable m_changed;
  std::map<std::thread::id, CLOCK::time_point> m_now;
  std::optional<CLOCK::time_point> m_stoppedAt;
  std::int32_t m_longestDelayUs;
  std::map<int, std::chrono::milliseconds> m_lengths;
  std::set<int> m_held;
  std::vector<int> m_begun;
  std::set<std::pair<std::thread::id, std::int32_t>> m_delayed;
  std::size_t m_delays = 0;
};

}  // namespace unit

}  // namespace vorn
