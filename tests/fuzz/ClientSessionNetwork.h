#pragma once

#include <sys/types.h>

#include <cstddef>
#include <deque>
#include <string>
#include <string_view>

// The target client-session is linked so that the client's socket calls pass through
// ClientSessionNetwork.cpp first. While a NETWORK lives they reach it and nothing else.

namespace client {

namespace fuzz {

/// What becomes of the next attempts to connect.
enum class CONNECTING {
  kWorks,
  kWorksLater,
  kIsRefused,
  kIsRefusedLater,
  kFails,
  kHangs,
  kToItself
};

/// The network, with one connection at most, and the far end of it. One at a time.
///
/// What the client opens is a number of this class's own: using one that is closed, having two,
/// closing one twice or leaving one open when the network goes fails the target.
class NETWORK {
 public:
  NETWORK();
  ~NETWORK();
  NETWORK(const NETWORK&) = delete;
  NETWORK& operator=(const NETWORK&) = delete;

  // The far end.
  void Let(CONNECTING connecting) { m_connecting = connecting; }
  /// Comes in one read, where the read is long enough.
  void Say(std::string_view piece);
  void Close(bool isReset);
  /// So much of the next writes is taken; 0: nothing.
  void TakeOfAWrite(std::size_t bytes) { m_takes = bytes; }

  /// What the client has read, and written, on its connection; what it had last, where it has none.
  const std::string& Read() const { return m_read; }
  const std::string& Written() const { return m_written; }
  bool IsOpen() const { return m_descriptor != -1; }

  // For the replaced calls; as the calls, -1 with errno set.
  static NETWORK* Current();
  bool Owns(int descriptor) const;
  int Socket();
  void CloseSocket();
  int Connect();
  bool IsConnected() const { return m_isConnected; }
  /// Nobody listens there, and the client's own port is the one that it connects to.
  bool IsToItself() const { return m_isToItself; }
  bool HasEvents(short events);
  int Error() const { return m_error; }
  ssize_t Receive(char* bytes, std::size_t count);
  ssize_t Send(const char* bytes, std::size_t count);
  void Shutdown(int how);

 private:
  /// Above what the process itself uses.
  static constexpr int kFirstDescriptor = 1'000'000;

  int m_descriptor = -1;
  int m_nextDescriptor = kFirstDescriptor;
  CONNECTING m_connecting = CONNECTING::kWorks;
  bool m_isConnected = false;
  bool m_isToItself = false;
  int m_error = 0;
  bool m_isEnded = false;  // by the far end
  bool m_isReset = false;
  bool m_isShut = false;  // by the client, for sending
  std::size_t m_takes = std::string::npos;
  std::deque<std::string> m_pieces;
  std::string m_read;
  std::string m_written;
};

}  // namespace fuzz

}  // namespace client
