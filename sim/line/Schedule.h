#pragma once

#include "sim/line/Exchange.h"

#include <chrono>
#include <map>
#include <optional>

namespace sim {

/// What is about to go out on the line, and how long the line takes to carry it. Knows no clock: it
/// is told the time. Belongs to one thread.
class SCHEDULE {
 public:
  /// Bits per second, 10 of them a byte (0: no time at all), and what the USB chip holds received
  /// bytes back before it hands them on.
  SCHEDULE(int baud, std::chrono::milliseconds latencyTimer)
      : m_baud(baud), m_latencyTimer(latencyTimer) {}

  /// A request of so many bytes was sent by then; returns when the line has carried it.
  TIME Carry(std::size_t bytes, TIME sent);

  /// One piece of the answer after the other, from that time on; each arrives when its last byte is
  /// through.
  void Add(const REPLY& reply, TIME from);

  /// When the next piece is due; nothing when none is.
  std::optional<TIME> Next() const;
  /// The next piece that is due by then.
  std::optional<Bytes> Take(TIME now);
  void Clear() { m_due.clear(); }

 private:
  std::chrono::nanoseconds TimeOnLine(std::size_t bytes) const;

  const int m_baud;
  const std::chrono::milliseconds m_latencyTimer;
  std::multimap<TIME, Bytes> m_due;  // equal times stay in the order in which they were added
  TIME m_towardRackFree{};           // when the line has carried all bytes so far, with a baud rate
  TIME m_towardNearFree{};
};

}  // namespace sim
