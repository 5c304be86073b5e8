#pragma once

#include <sys/types.h>

#include <array>
#include <cstddef>
#include <optional>

namespace vorn {

// The targets with clients are linked so that the daemon's socket calls pass through Sockets.cpp
// first. While a SOCKETS lives they reach it and nothing else.

namespace fuzz {

/// The network as a fuzz target wants it. One at a time.
///
/// What the daemon opens is a number of this class's own; closing one twice, or leaving one open
/// when the network goes, fails the target.
class SOCKETS {
 public:
  SOCKETS();
  virtual ~SOCKETS();
  SOCKETS(const SOCKETS&) = delete;
  SOCKETS& operator=(const SOCKETS&) = delete;

  // What a target gives its network.
  /// A client waits at this TCP port; it is taken.
  virtual bool Accept(int port) = 0;
  virtual bool IsReadable(int port) = 0;
  virtual bool HasLeft(int port) = 0;
  /// As recv and send: -1 with errno set on a failure.
  virtual ssize_t Receive(int port, char* bytes, std::size_t count) = 0;
  /// The same, and what was given stays to be received.
  virtual ssize_t Peek(int port, char* bytes, std::size_t count) = 0;
  virtual ssize_t Send(int port, const char* bytes, std::size_t count) = 0;
  /// The daemon has closed the client's socket.
  virtual void OnClosed(int port) { static_cast<void>(port); }

  // For the replaced calls.
  struct DESCRIPTOR {
    bool isClient;
    int tcpPort;
  };
  static SOCKETS* Current();
  DESCRIPTOR* Find(int descriptor);
  int Open(DESCRIPTOR descriptor);
  void Close(int descriptor);

 private:
  /// Above what the process itself uses, below what select can hold.
  static constexpr int kFirstDescriptor = 900;
  static constexpr int kLastDescriptor = 1023;
  static constexpr std::size_t kDescriptors = kLastDescriptor - kFirstDescriptor + 1;

  std::array<std::optional<DESCRIPTOR>, kDescriptors> m_descriptors{};
};

}  // namespace fuzz

}  // namespace vorn
