#include "tests/support/ReservedPort.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

namespace support {

RESERVED_PORT::RESERVED_PORT() : m_socket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  const int reuse = 1;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  socklen_t size = sizeof address;
  if (setsockopt(m_socket, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse) != 0 ||
      bind(m_socket, reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
      getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    throw std::runtime_error("no port for the test");
  }
  m_port = ntohs(address.sin_port);
}

RESERVED_PORT::~RESERVED_PORT() {
  close(m_socket);
}

void RESERVED_PORT::Listen() const {
  listen(m_socket, 1);
}

}  // namespace support
