#pragma once

#include "tests/support/Wait.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace support {

/// How a client connects.
struct CLIENT_OPTIONS {
  bool smallBuffers = false;  // a few KiB of traffic at most are under way to this client
  int bufferSize = 2048;      // this side's share of that; with less than 32 KiB it reads slowly
  int sendBufferSize = 0;     // how much may be under way from it; 0: what the kernel likes
  milliseconds limit = kLimit;
};

/// A TCP client of one of the daemon's interfaces on the loopback interface. One thread.
class TCP_CLIENT {
 public:
  /// Connects, trying again while the port refuses. Throws std::runtime_error after the limit.
  explicit TCP_CLIENT(int port, CLIENT_OPTIONS options = {});
  ~TCP_CLIENT();
  TCP_CLIENT(TCP_CLIENT&& other) noexcept;
  TCP_CLIENT& operator=(TCP_CLIENT&& other) noexcept;
  TCP_CLIENT(const TCP_CLIENT&) = delete;
  TCP_CLIENT& operator=(const TCP_CLIENT&) = delete;

  /// One attempt: nobody listens on the port.
  static bool IsRefused(int port);

  /// This side's port.
  int LocalPort() const { return m_localPort; }

  /// Sends all of the text, as one segment where it is short.
  void Send(std::string_view text);

  /// Sends and waits until the daemon has read all of it, so that what is sent next is read
  /// separately.
  void SendAndWaitUntilRead(std::string_view text);

  /// The daemon has read all that was sent.
  bool IsAllRead() const;
  /// So many bytes it has not read; those of a connection that is over, or not accepted, do not
  /// count.
  std::size_t UnreadBytes() const;

  /// Sends as much as the connection takes without waiting; the number of bytes taken.
  std::size_t TrySend(std::string_view text) const;
  /// Waits until the connection takes at least one more byte.
  bool WaitUntilWritable(milliseconds limit);

  /// Waits for the first byte, which stays unread. False where the connection ends before it;
  /// throws std::runtime_error after the limit.
  bool WaitForFirstByte(milliseconds limit = kLimit);

  /// The daemon has closed or lost the connection, as the last read saw.
  bool IsEnded() const { return m_isEnded; }

  /// At most count bytes: fewer at the connection's end or after the limit.
  std::string Read(std::size_t count, milliseconds limit = kLimit);
  /// Up to and including the text; what came when it does not come.
  std::string ReadUntil(std::string_view text, milliseconds limit = kLimit);
  /// Everything up to the connection's end.
  std::string ReadToEnd(milliseconds limit = kLimit);

  /// The next bytes are exactly the text. Reads no further than that.
  testing::AssertionResult Receives(std::string_view text, milliseconds limit = kLimit);
  /// Nothing comes for a while.
  testing::AssertionResult ReceivesNothing(milliseconds time = kSilence);
  /// The daemon has closed the connection, and nothing came before that.
  testing::AssertionResult IsClosed(milliseconds limit = kLimit);

  /// No more is sent; the daemon's own bytes still come.
  void CloseSending() const;
  /// Closes in the ordinary way.
  void Close();
  /// Closes with a reset, as a client does that vanished with data under way.
  void Reset();

 private:
  /// More into m_received; false at the end of the connection or after the limit.
  bool Receive(std::chrono::steady_clock::time_point end);
  std::string Take(std::size_t count);

  int m_socket = -1;
  int m_port = 0;
  int m_localPort = 0;
  std::string m_received;  // read from the connection, not taken yet
  bool m_isEnded = false;
};

}  // namespace support
