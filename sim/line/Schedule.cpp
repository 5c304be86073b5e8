#include "sim/line/Schedule.h"

#include <algorithm>

namespace sim {

/// Ten bits a byte: start bit, eight data bits, stop bit.
std::chrono::nanoseconds SCHEDULE::TimeOnLine(std::size_t bytes) const {
  if (m_baud <= 0) {
    return std::chrono::nanoseconds(0);
  }
  return std::chrono::nanoseconds(static_cast<std::int64_t>(bytes) * 10 * 1'000'000'000 / m_baud);
}

TIME SCHEDULE::Carry(std::size_t bytes, TIME sent) {
  m_towardRackFree = std::max(m_towardRackFree, sent) + TimeOnLine(bytes);
  return m_towardRackFree;
}

void SCHEDULE::Add(const REPLY& reply, TIME from) {
  for (const CHUNK& chunk : reply) {
    from += chunk.delay;
    if (m_baud > 0) {
      m_towardNearFree = std::max(m_towardNearFree, from) + TimeOnLine(chunk.bytes.size());
      from = m_towardNearFree;
    }
    m_due.emplace(from + m_latencyTimer, chunk.bytes);
  }
}

std::optional<TIME> SCHEDULE::Next() const {
  return m_due.empty() ? std::nullopt : std::optional(m_due.begin()->first);
}

std::optional<Bytes> SCHEDULE::Take(TIME now) {
  if (m_due.empty() || m_due.begin()->first > now) {
    return std::nullopt;
  }
  Bytes bytes = std::move(m_due.begin()->second);
  m_due.erase(m_due.begin());
  return bytes;
}

}  // namespace sim
