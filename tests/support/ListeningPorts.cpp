#include "tests/support/ListeningPorts.h"

#include "tests/support/ProcessInfo.h"
#include "tests/support/Text.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <random>
#include <stdexcept>
#include <string>

namespace support {
namespace {

struct CONNECTION {
  int localPort = 0;
  int peerPort = 0;
  int state = 0;
  long unacknowledged = 0;
  long unread = 0;
  unsigned long inode = 0;
};

constexpr int kListenState = 0x0A;

std::vector<CONNECTION> Connections() {
  std::vector<CONNECTION> all;
  for (const std::string& line : Lines(ReadFile("/proc/net/tcp"))) {
    unsigned localPort = 0;
    unsigned peerPort = 0;
    unsigned state = 0;
    unsigned long unacknowledged = 0;
    unsigned long unread = 0;
    unsigned long inode = 0;
    // slot: local peer state tx:rx timer retransmissions uid time-out inode
    if (std::sscanf(line.c_str(), " %*d: %*x:%x %*x:%x %x %lx:%lx %*s %*s %*s %*s %lu", &localPort,
                    &peerPort, &state, &unacknowledged, &unread, &inode) == 6) {
      all.push_back({static_cast<int>(localPort), static_cast<int>(peerPort),
                     static_cast<int>(state), static_cast<long>(unacknowledged),
                     static_cast<long>(unread), inode});
    }
  }
  return all;
}

bool IsFree(int port) {
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  const bool isFree =
      bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  close(listener);
  return isFree;
}

}  // namespace

std::vector<int> FreePorts(int count) {
  std::random_device seed;
  std::uniform_int_distribution<int> anyPort(10'000, 29'999);
  std::vector<int> ports;
  for (int tries = 0; tries < 10'000 && static_cast<int>(ports.size()) < count; ++tries) {
    const int port = anyPort(seed);
    if (std::count(ports.begin(), ports.end(), port) == 0 && IsFree(port)) {
      ports.push_back(port);
    }
  }
  if (static_cast<int>(ports.size()) < count) {
    throw std::runtime_error("no free ports");
  }
  return ports;
}

std::vector<int> ListeningPorts(pid_t pid) {
  const auto descriptors = OpenDescriptors(pid);
  std::vector<int> ports;
  for (const CONNECTION& connection : Connections()) {
    const std::string name = "socket:[" + std::to_string(connection.inode) + "]";
    const bool isOurs = std::any_of(descriptors.begin(), descriptors.end(),
                                    [&](const auto& entry) { return entry.second == name; });
    if (connection.state == kListenState && isOurs) {
      ports.push_back(connection.localPort);
    }
  }
  std::sort(ports.begin(), ports.end());
  return ports;
}

long UnreadBytes(int localPort, int peerPort) {
  for (const CONNECTION& connection : Connections()) {
    if (connection.localPort == localPort && connection.peerPort == peerPort) {
      return connection.unread;
    }
  }
  return -1;
}

long UnacknowledgedBytes(int localPort, int peerPort) {
  for (const CONNECTION& connection : Connections()) {
    if (connection.localPort == localPort && connection.peerPort == peerPort) {
      return connection.unacknowledged;
    }
  }
  return -1;
}

}  // namespace support
