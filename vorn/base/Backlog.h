#pragma once

#include <cstddef>

/// Whether too much waits in a queue: from its limit on, and until half of that is gone. With the
/// limit alone each message would bring a log line while one is taken for each that comes. One
/// thread.
class BACKLOG {
 public:
  explicit BACKLOG(std::size_t limit) : m_limit(limit) {}

  /// Takes note of how many messages wait. True where they have just become too many, which is
  /// worth a log line.
  bool FillsUp(std::size_t waiting) {
    const bool wasFull = m_full;
    m_full = waiting >= (wasFull ? m_limit / 2 : m_limit);
    return m_full && !wasFull;
  }
  bool IsFull() const { return m_full; }

 private:
  std::size_t m_limit;
  bool m_full = false;
};
