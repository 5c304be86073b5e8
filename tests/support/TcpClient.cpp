#include "tests/support/TcpClient.h"

#include "tests/support/ListeningPorts.h"
#include "tests/support/Text.h"

#include <arpa/inet.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace support {
namespace {

using CLOCK = std::chrono::steady_clock;

int MillisecondsUntil(CLOCK::time_point end) {
  const auto left = std::chrono::duration_cast<milliseconds>(end - CLOCK::now()).count();
  return static_cast<int>(std::max<long long>(left, 0));
}

/// The socket, connected, or -1.
int ConnectOnce(int port, const CLIENT_OPTIONS& options) {
  const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (options.smallBuffers) {
    // The daemon's side takes its own buffer's size from the segment size.
    const int segmentSize = 536;
    setsockopt(client, IPPROTO_TCP, TCP_MAXSEG, &segmentSize, sizeof segmentSize);
    setsockopt(client, SOL_SOCKET, SO_RCVBUF, &options.bufferSize, sizeof options.bufferSize);
  }
  if (options.sendBufferSize > 0) {
    setsockopt(client, SOL_SOCKET, SO_SNDBUF, &options.sendBufferSize,
               sizeof options.sendBufferSize);
  }
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    const int on = 1;
    setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return client;
  }
  close(client);
  return -1;
}

}  // namespace

TCP_CLIENT::TCP_CLIENT(int port, CLIENT_OPTIONS options) : m_port(port) {
  if (!WaitUntil([&] { return (m_socket = ConnectOnce(port, options)) >= 0; }, options.limit)) {
    throw std::runtime_error("cannot connect to port " + std::to_string(port));
  }
  sockaddr_in own{};
  socklen_t length = sizeof own;
  getsockname(m_socket, reinterpret_cast<sockaddr*>(&own), &length);
  m_localPort = ntohs(own.sin_port);
}

TCP_CLIENT::~TCP_CLIENT() {
  Close();
}

TCP_CLIENT::TCP_CLIENT(TCP_CLIENT&& other) noexcept
    : m_socket(std::exchange(other.m_socket, -1)),
      m_port(other.m_port),
      m_localPort(other.m_localPort),
      m_received(std::move(other.m_received)),
      m_isEnded(other.m_isEnded) {
}

TCP_CLIENT& TCP_CLIENT::operator=(TCP_CLIENT&& other) noexcept {
  if (this != &other) {
    Close();
    m_socket = std::exchange(other.m_socket, -1);
    m_port = other.m_port;
    m_localPort = other.m_localPort;
    m_received = std::move(other.m_received);
    m_isEnded = other.m_isEnded;
  }
  return *this;
}

bool TCP_CLIENT::IsRefused(int port) {
  const int client = ConnectOnce(port, {});
  const bool isRefused = client < 0 && errno == ECONNREFUSED;
  if (client >= 0) {
    close(client);
  }
  return isRefused;
}

void TCP_CLIENT::Send(std::string_view text) {
  while (!text.empty()) {
    const std::size_t taken = TrySend(text);
    text.remove_prefix(taken);
    if (!text.empty() && !WaitUntilWritable(kLimit)) {
      throw std::runtime_error("the daemon does not take what is sent");
    }
  }
}

void TCP_CLIENT::SendAndWaitUntilRead(std::string_view text) {
  Send(text);
  if (!WaitUntil([&] { return IsAllRead(); })) {
    throw std::runtime_error("the daemon does not read what is sent");
  }
}

bool TCP_CLIENT::IsAllRead() const {
  int onTheWay = 0;  // not acknowledged: perhaps not in the daemon's buffer yet
  ioctl(m_socket, SIOCOUTQ, &onTheWay);
  return onTheWay == 0 && support::UnreadBytes(m_port, m_localPort) == 0;
}

std::size_t TCP_CLIENT::UnreadBytes() const {
  int onTheWay = 0;
  ioctl(m_socket, SIOCOUTQ, &onTheWay);
  const long unread = support::UnreadBytes(m_port, m_localPort);
  return static_cast<std::size_t>(onTheWay) + static_cast<std::size_t>(std::max(unread, 0L));
}

std::size_t TCP_CLIENT::TrySend(std::string_view text) const {
  const ssize_t sent = send(m_socket, text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  if (sent < 0 && errno != EAGAIN && errno != EINTR) {
    throw std::runtime_error(std::string("send: ") + std::strerror(errno));
  }
  return sent < 0 ? 0 : static_cast<std::size_t>(sent);
}

bool TCP_CLIENT::WaitUntilWritable(milliseconds limit) {
  pollfd wait{m_socket, POLLOUT, 0};
  return poll(&wait, 1, static_cast<int>(limit.count())) > 0;
}

bool TCP_CLIENT::Receive(CLOCK::time_point end) {
  if (m_isEnded || m_socket < 0) {
    return false;
  }
  pollfd wait{m_socket, POLLIN, 0};
  const int ready = poll(&wait, 1, MillisecondsUntil(end));
  if (ready == 0) {
    return false;
  }
  if (ready < 0) {
    return errno == EINTR;
  }
  char buffer[65536];
  const ssize_t length = recv(m_socket, buffer, sizeof buffer, 0);
  if (length <= 0) {
    m_isEnded = true;
    return false;
  }
  m_received.append(buffer, static_cast<std::size_t>(length));
  return true;
}

std::string TCP_CLIENT::Take(std::size_t count) {
  std::string taken = m_received.substr(0, count);
  m_received.erase(0, taken.size());
  return taken;
}

bool TCP_CLIENT::WaitForFirstByte(milliseconds limit) {
  const auto end = CLOCK::now() + limit;
  while (m_received.empty() && Receive(end)) {
  }
  if (m_received.empty() && !m_isEnded) {
    throw std::runtime_error("nothing comes from port " + std::to_string(m_port));
  }
  return !m_received.empty();
}

std::string TCP_CLIENT::Read(std::size_t count, milliseconds limit) {
  const auto end = CLOCK::now() + limit;
  while (m_received.size() < count && Receive(end)) {
  }
  return Take(count);
}

std::string TCP_CLIENT::ReadUntil(std::string_view text, milliseconds limit) {
  const auto end = CLOCK::now() + limit;
  std::size_t position = std::string::npos;
  while ((position = m_received.find(text)) == std::string::npos && Receive(end)) {
  }
  return Take(position == std::string::npos ? m_received.size() : position + text.size());
}

std::string TCP_CLIENT::ReadToEnd(milliseconds limit) {
  const auto end = CLOCK::now() + limit;
  while (Receive(end)) {
  }
  return Take(m_received.size());
}

testing::AssertionResult TCP_CLIENT::Receives(std::string_view text, milliseconds limit) {
  const auto end = CLOCK::now() + limit;
  const auto isPrefix = [&] { return text.starts_with(std::string_view(m_received)); };
  while (m_received.size() < text.size() && isPrefix() && Receive(end)) {
  }
  if (std::string_view(m_received).starts_with(text)) {
    Take(text.size());
    return testing::AssertionSuccess();
  }
  while (Receive(CLOCK::now() + kSilence)) {  // all there is to see, for the message
  }
  const auto result = testing::AssertionFailure()
                      << "expected:\n  " << Visible(text) << "\nreceived:\n  "
                      << Visible(m_received)
                      << (m_isEnded ? "\nand then the end of the connection" : "");
  Take(m_received.size());
  return result;
}

testing::AssertionResult TCP_CLIENT::ReceivesNothing(milliseconds time) {
  const auto end = CLOCK::now() + time;
  while (m_received.empty() && Receive(end)) {
  }
  if (m_received.empty()) {
    return testing::AssertionSuccess();
  }
  return testing::AssertionFailure() << "received: " << Visible(m_received);
}

testing::AssertionResult TCP_CLIENT::IsClosed(milliseconds limit) {
  const std::string rest = ReadToEnd(limit);
  if (rest.empty() && m_isEnded) {
    return testing::AssertionSuccess();
  }
  return testing::AssertionFailure()
         << (m_isEnded ? "closed after: " : "not closed; received: ") << Visible(rest);
}

void TCP_CLIENT::CloseSending() const {
  shutdown(m_socket, SHUT_WR);
}

void TCP_CLIENT::Close() {
  if (m_socket >= 0) {
    close(std::exchange(m_socket, -1));
  }
}

void TCP_CLIENT::Reset() {
  const linger atOnce{1, 0};
  setsockopt(m_socket, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
  Close();
}

}  // namespace support
