#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>

namespace soak {

/// A line of a flood: "flood 0000000042 ......", of a length that fills the daemon's queues with
/// few lines.
std::string FloodLine(std::uint64_t number);

/// Follows the numbered lines of the floods, which all come from one client in their order, through
/// what another client receives: none may be torn, none may come after a later one, and of those
/// that are missing the daemon must have told. One thread hands over what was received; the
/// questions may be asked from another, one lock guards both.
class FLOOD_LINES {
 public:
  /// Whether a line without a number may come; called for each, in their order.
  using IS_KNOWN = std::function<bool(const std::string& line)>;

  /// `prefix`: what stands before a numbered line here.
  FLOOD_LINES(std::string prefix, IS_KNOWN isKnown)
      : m_prefix(std::move(prefix)), m_isKnown(isKnown) {}

  /// A new connection: what was left unfinished by the one before goes.
  void Restart();
  /// The next bytes that were received.
  void Take(std::string_view bytes);

  /// Numbered lines received so far.
  std::uint64_t Received() const;
  /// What was wrong with the first line that was torn, or came late; empty: nothing.
  std::string Fault() const;

 private:
  void TakeLine(const std::string& line);

  const std::string m_prefix;
  const IS_KNOWN m_isKnown;
  mutable std::mutex m_mutex;  // guards all below
  std::string m_unfinished;
  std::uint64_t m_received = 0;
  std::uint64_t m_latest = 0;
  std::string m_fault;
};

}  // namespace soak
