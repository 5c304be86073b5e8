#include "tests/support/sim/RequestLog.h"

#include <algorithm>

namespace support {

void REQUEST_LOG::Add(sim::TIME when, const sim::Bytes& frame) {
  const std::lock_guard lock(m_mutex);
  m_requests.push_back({++m_last, when, frame});
  if (m_requests.size() > kCapacity) {
    m_requests.pop_front();
  }
  m_added.notify_all();
}

std::uint64_t REQUEST_LOG::Last() const {
  const std::lock_guard lock(m_mutex);
  return m_last;
}

std::vector<sim::REQUEST> REQUEST_LOG::Since(std::uint64_t after) const {
  const std::lock_guard lock(m_mutex);
  const auto first =
      std::find_if(m_requests.begin(), m_requests.end(),
                   [after](const sim::REQUEST& entry) { return entry.number > after; });
  return {first, m_requests.end()};
}

std::optional<sim::REQUEST> REQUEST_LOG::WaitForRequest(const PREDICATE& predicate,
                                                        std::chrono::milliseconds limit,
                                                        std::uint64_t after) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  std::unique_lock lock(m_mutex);
  while (true) {
    for (const sim::REQUEST& entry : m_requests) {
      if (entry.number <= after) {
        continue;
      }
      after = entry.number;
      if (predicate(entry)) {
        return entry;
      }
    }
    if (m_added.wait_until(lock, deadline) == std::cv_status::timeout && m_last <= after) {
      return std::nullopt;
    }
  }
}

std::optional<sim::REQUEST> REQUEST_LOG::WaitForFrame(const sim::Bytes& frame,
                                                      std::chrono::milliseconds limit,
                                                      std::uint64_t after) {
  return WaitForRequest([&frame](const sim::REQUEST& entry) { return entry.frame == frame; }, limit,
                        after);
}

}  // namespace support
