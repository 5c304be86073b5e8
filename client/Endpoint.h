#pragma once

#include <sys/socket.h>

#include <string>
#include <vector>

namespace client {

/// Where a session may connect to.
struct ENDPOINT {
  sockaddr_storage address{};
  socklen_t size = 0;
};

/// The addresses of a host, by name or number, IPv4 only: the daemon listens on no other. Blocks
/// while a name is looked up; a number never blocks. `port` is 1 to 65535. Throws
/// std::runtime_error with the reason.
std::vector<ENDPOINT> Resolve(const std::string& host, int port);

/// "192.168.1.5:5000", for people.
std::string TextOf(const ENDPOINT& endpoint);
/// 0 where it has none.
int PortOf(const ENDPOINT& endpoint);

}  // namespace client
