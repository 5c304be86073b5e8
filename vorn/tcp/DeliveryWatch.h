#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace vorn {

/// Watches whether a client still takes what is written to it: one that has acknowledged nothing
/// for half a minute, although something is under way to it, has lost its power or does not read.
///
/// The kernel's own limit (TCP_USER_TIMEOUT) does not serve: it counts from the first time that the
/// client's window was closed, and so resets a client that pauses its reading twice, however much
/// it has read in between. One thread.
class DELIVERY_WATCH {
 public:
  using TIME = std::chrono::steady_clock::time_point;

  /// A new connection, over which nothing has gone.
  void Begin(TIME now);
  /// So many bytes more were handed to the kernel.
  void Written(std::size_t bytes, TIME now);
  /// When the next look is due: once a second while something is under way, else TIME::max().
  TIME NextLook() const { return m_nextLook; }
  /// A look at the connection, of which `underWay` bytes of what was written are not acknowledged:
  /// true when that has been so, without one more acknowledged, for half a minute.
  bool IsGivenUp(std::uint64_t underWay, TIME now);

 private:
  std::uint64_t m_written = 0;       // bytes
  std::uint64_t m_acknowledged = 0;  // bytes, at the last look
  TIME m_latest{};                   // the latest look that saw progress, or nothing under way
  TIME m_nextLook = TIME::max();
};

}  // namespace vorn
