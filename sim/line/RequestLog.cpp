#include "sim/line/RequestLog.h"

#include <algorithm>

namespace sim {

void REQUEST_LOG::Add(REQUEST entry) {
  const std::lock_guard lock(m_mutex);
  m_last = entry.number;
  m_requests.push_back(std::move(entry));
  if (m_requests.size() > kCapacity)
    m_requests.pop_front();
  m_added.notify_all();
}

std::uint64_t REQUEST_LOG::Last() const {
  const std::lock_guard lock(m_mutex);
  return m_last;
}

std::vector<REQUEST> REQUEST_LOG::Since(std::uint64_t after) const {
  const std::lock_guard lock(m_mutex);
  const auto first = std::find_if(m_requests.begin(), m_requests.end(),
                                  [after](const REQUEST& entry) { return entry.number > after; });
  return {first, m_requests.end()};
}

std::optional<REQUEST> REQUEST_LOG::WaitForRequest(const PREDICATE& predicate,
                                                   std::chrono::milliseconds limit,
                                                   std::uint64_t after) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  std::unique_lock lock(m_mutex);
  while (true) {
    for (const REQUEST& entry : m_requests) {
      if (entry.number <= after)
        continue;
      after = entry.number;
      if (predicate(entry))
        return entry;
    }
    if (m_added.wait_until(lock, deadline) == std::cv_status::timeout && m_last <= after)
      return std::nullopt;
  }
}

std::optional<REQUEST> REQUEST_LOG::WaitForFrame(const Bytes& frame,
                                                 std::chrono::milliseconds limit,
                                                 std::uint64_t after) {
  return WaitForRequest([&frame](const REQUEST& entry) { return entry.frame == frame; }, limit,
                        after);
}

}  // namespace sim
