#pragma once

#include "bench/compare/Loop.h"

#include <optional>
#include <string>
#include <string_view>

namespace bench {

/// A TCP connection to a port of this machine.
class CLIENT {
 public:
  /// Tries again until somebody listens. The loop is lent.
  CLIENT(LOOP& loop, int port);
  ~CLIENT();
  CLIENT(const CLIENT&) = delete;
  CLIENT& operator=(const CLIENT&) = delete;

  /// What the connection does not take at once follows as soon as it does.
  void Send(std::string_view bytes);
  bool HasSentAll() const { return m_unsent.empty(); }

  /// All that has come and was not taken yet.
  const std::string& Received() const { return m_received; }
  /// When the last piece of that was read.
  TIME ReceivedAt() const { return m_receivedAt; }
  void Drop(std::size_t count) { m_received.erase(0, count); }
  void DropAll() { m_received.clear(); }
  /// The next whole line, without its line feed and any carriage return.
  std::optional<std::string> TakeLine();
  /// Waits until that has come; throws FAILURE if it does not within the time.
  void Await(std::string_view text, NANOSECONDS limit);

 private:
  void Handle();
  void SendMore();

  LOOP& m_loop;
  DESCRIPTOR m_socket;
  std::string m_received;
  TIME m_receivedAt{};
  std::string m_unsent;
  bool m_isClosed = false;
};

}  // namespace bench
