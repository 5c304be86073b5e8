#include "bench/compare/Client.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>

namespace bench {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr seconds kConnectLimit{30};
constexpr milliseconds kBeforeNextTry{5};

DESCRIPTOR TryToConnect(int port) {
  DESCRIPTOR client(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<in_port_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const int on = 1;
  setsockopt(client.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  if (client.Get() < 0 ||
      connect(client.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    return {};
  }
  fcntl(client.Get(), F_SETFL, O_NONBLOCK);
  return client;
}

}  // namespace

CLIENT::CLIENT(LOOP& loop, int port) : m_loop(loop) {
  const TIME limit = CLOCK::now() + kConnectLimit;
  while ((m_socket = TryToConnect(port)).Get() < 0) {
    if (CLOCK::now() >= limit) {
      FailOf("connection to port " + std::to_string(port));
    }
    m_loop.RunFor(kBeforeNextTry);
  }
  m_loop.Watch(m_socket.Get(), [this] { Handle(); });
}

CLIENT::~CLIENT() {
  m_loop.Forget(m_socket.Get());
}

void CLIENT::Handle() {
  SendMore();
  std::array<char, 65536> buffer;  // NOLINT: filled by recv
  const ssize_t count = recv(m_socket.Get(), buffer.data(), buffer.size(), 0);
  if (count > 0) {
    m_receivedAt = CLOCK::now();
    m_received.append(buffer.data(), static_cast<std::size_t>(count));
  } else if (count == 0) {
    m_isClosed = true;
    m_loop.Forget(m_socket.Get());
  }
}

void CLIENT::Send(std::string_view bytes) {
  if (!m_unsent.empty()) {
    m_unsent += bytes;
    return;
  }
  const ssize_t count = send(m_socket.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
  const auto sent = static_cast<std::size_t>(std::max<ssize_t>(count, 0));
  if (sent < bytes.size()) {
    m_unsent = bytes.substr(sent);
    m_loop.WantRoom(m_socket.Get(), true);
  }
}

void CLIENT::SendMore() {
  if (m_unsent.empty()) {
    return;
  }
  const ssize_t count = send(m_socket.Get(), m_unsent.data(), m_unsent.size(), MSG_NOSIGNAL);
  m_unsent.erase(0, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  if (m_unsent.empty()) {
    m_loop.WantRoom(m_socket.Get(), false);
  }
}

std::optional<std::string> CLIENT::TakeLine() {
  const std::size_t end = m_received.find('\n');
  if (end == std::string::npos) {
    return std::nullopt;
  }
  std::string line = m_received.substr(0, end);
  m_received.erase(0, end + 1);
  line.erase(std::remove(line.begin(), line.end(), '\r'), line.end());
  return line;
}

void CLIENT::Await(std::string_view text, NANOSECONDS limit) {
  m_loop.Run(CLOCK::now() + limit,
             [&] { return m_isClosed || m_received.find(text) != std::string::npos; });
  if (m_received.find(text) == std::string::npos) {
    throw FAILURE("waited in vain for '" + std::string(text) + "'; there came '" + m_received +
                  "'");
  }
}

}  // namespace bench
