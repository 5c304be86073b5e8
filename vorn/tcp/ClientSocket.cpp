#include "vorn/tcp/ClientSocket.h"

#include "vorn/base/Values.h"

#include <arpa/inet.h>
#include <linux/sockios.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace vorn {

namespace {

// A peer that lost its power is given up within a minute, as it holds the only client slot.
constexpr int kKeepAliveIdleS = 15;
constexpr int kKeepAliveIntervalS = 5;
constexpr int kKeepAliveProbes = 3;
constexpr std::size_t kSendBufferSize = 256;
constexpr timeval kSendTimeout = {10, 0};

template <class T>
void SetOption(int socket, int level, int option, const T& value) {
  // Refused only where the connection is gone already, which the next read or write reports.
  setsockopt(socket, level, option, &value, sizeof value);
}

}  // namespace

void PrepareClientSocket(int client) {
  // Answers are several small messages; without this the prompt would wait for the client's delayed
  // acknowledgement, some 45 ms.
  SetOption(client, IPPROTO_TCP, TCP_NODELAY, 1);
  SetOption(client, SOL_SOCKET, SO_KEEPALIVE, 1);
  SetOption(client, IPPROTO_TCP, TCP_KEEPIDLE, kKeepAliveIdleS);
  SetOption(client, IPPROTO_TCP, TCP_KEEPINTVL, kKeepAliveIntervalS);
  SetOption(client, IPPROTO_TCP, TCP_KEEPCNT, kKeepAliveProbes);
  SetOption(client, SOL_SOCKET, SO_SNDTIMEO, kSendTimeout);
}

bool IsReadable(int client) {
  pollfd state = {client, POLLIN, 0};
  return poll(&state, 1, 0) > 0;
}

bool HasLeft(int client) {
  pollfd state = {client, POLLRDHUP, 0};
  return poll(&state, 1, 0) > 0;
}

bool IsCutOff(int client) {
  pollfd state = {client, 0, 0};
  return poll(&state, 1, 0) > 0 && (state.revents & (POLLERR | POLLHUP)) != 0;
}

std::uint64_t BytesUnderWay(int client) {
  int bytes = 0;
  return ioctl(client, SIOCOUTQ, &bytes) == 0 ? static_cast<std::uint64_t>(bytes) : 0;
}

std::size_t SendAll(int client, const std::string& bytes) {
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t count = send(client, bytes.data() + sent,
                               std::min(kSendBufferSize, bytes.size() - sent), MSG_NOSIGNAL);
    if (count >= 0) {
      sent += static_cast<std::size_t>(count);
    } else if (errno != EINTR) {
      break;
    }
  }
  return sent;
}

void CutOff(int client) {
  SetOption(client, SOL_SOCKET, SO_LINGER, linger{1, 0});
  shutdown(client, SHUT_RDWR);
}

std::string PeerText(const sockaddr_in& peer) {
  std::array<char, INET_ADDRSTRLEN> address{};
  inet_ntop(AF_INET, &peer.sin_addr, address.data(), address.size());
  return std::string(address.data()) + ":" + ITOA(peer.sin_port);
}

}  // namespace vorn
