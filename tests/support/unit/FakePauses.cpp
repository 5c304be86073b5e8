#include "tests/support/unit/FakePauses.h"

#include "thread/Pause.h"

#include <algorithm>

namespace vorn {

namespace unit {

void FAKE_PAUSES::Rest(REST& rest) {
  if (m_restsForReal) {
    m_real.Rest(rest);
    return;
  }
  DelayUs(rest.delayUs());
  if (m_longestDelayUs > 0) {
    PauseUs(1);  // where the delay is none, too
  }
}

void FAKE_PAUSES::SecondsUnless(int seconds, const std::function<bool()>& /*isOver*/) {
  Seconds(seconds);
}

void FAKE_PAUSES::DelayUs(std::int32_t delayUs) {
  if (delayUs <= 0) {
    return;
  }
  std::unique_lock lock(m_lock);
  m_delayed.emplace(std::this_thread::get_id(), delayUs);
  ++m_delays;
  const std::int32_t realUs = std::min(delayUs, m_longestDelayUs);
  m_now[std::this_thread::get_id()] +=
      std::chrono::microseconds(m_longestDelayUs > 0 ? realUs : delayUs);
  lock.unlock();
  PauseUs(realUs);
}

void FAKE_PAUSES::Seconds(int seconds) {
  std::unique_lock lock(m_lock);
  m_begun.push_back(seconds);
  m_changed.notify_all();
  m_changed.wait(lock, [&] { return !m_held.contains(seconds); });
  m_now[std::this_thread::get_id()] += std::chrono::seconds(seconds);
  const auto length = m_lengths[seconds];
  lock.unlock();
  std::this_thread::sleep_for(length);
}

PAUSES::CLOCK::time_point FAKE_PAUSES::Now() {
  const std::lock_guard lock(m_lock);
  if (m_restsForReal) {
    return m_stoppedAt.value_or(CLOCK::now());
  }
  return m_now[std::this_thread::get_id()];
}

void FAKE_PAUSES::StopClock() {
  const std::lock_guard lock(m_lock);
  m_stoppedAt = CLOCK::now();
}

void FAKE_PAUSES::RunClock() {
  const std::lock_guard lock(m_lock);
  m_stoppedAt.reset();
}

void FAKE_PAUSES::SetLength(int seconds, std::chrono::milliseconds length) {
  const std::lock_guard lock(m_lock);
  m_lengths[seconds] = length;
}

void FAKE_PAUSES::SetLongestDelayUs(std::int32_t longestUs) {
  const std::lock_guard lock(m_lock);
  m_longestDelayUs = longestUs;
}

void FAKE_PAUSES::Hold(int seconds) {
  const std::lock_guard lock(m_lock);
  m_held.insert(seconds);
}

void FAKE_PAUSES::Release(int seconds) {
  const std::lock_guard lock(m_lock);
  m_held.erase(seconds);
  m_changed.notify_all();
}

std::vector<int> FAKE_PAUSES::Begun() const {
  const std::lock_guard lock(m_lock);
  return m_begun;
}

int FAKE_PAUSES::CountBegun(int seconds) const {
  const std::vector<int> begun = Begun();
  return static_cast<int>(std::count(begun.begin(), begun.end(), seconds));
}

bool FAKE_PAUSES::WaitUntilBegun(int seconds, int count) const {
  std::unique_lock lock(m_lock);
  return m_changed.wait_for(lock, support::kLimit, [&] {
    return std::count(m_begun.begin(), m_begun.end(), seconds) >= count;
  });
}

std::size_t FAKE_PAUSES::ThreadsThatDelayed(std::int32_t delayUs) const {
  const std::lock_guard lock(m_lock);
  return static_cast<std::size_t>(
      std::count_if(m_delayed.begin(), m_delayed.end(),
                    [&](const auto& delay) { return delay.second == delayUs; }));
}

std::size_t FAKE_PAUSES::Delays() const {
  const std::lock_guard lock(m_lock);
  return m_delays;
}

}  // namespace unit

}  // namespace vorn
