#include "tests/support/SystemLog.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>

namespace support {
namespace {
constexpr const char* kPath = "/dev/log";
}

SYSTEM_LOG::SYSTEM_LOG() : m_socket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, kPath, sizeof address.sun_path - 1);
  if (bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    close(m_socket);
    throw std::runtime_error("/dev/log is somebody else's");
  }
}

SYSTEM_LOG::~SYSTEM_LOG() {
  unlink(kPath);
  close(m_socket);
}

std::string SYSTEM_LOG::Receive(milliseconds limit) {
  pollfd wait{m_socket, POLLIN, 0};
  if (poll(&wait, 1, static_cast<int>(limit.count())) <= 0) {
    return {};
  }
  char message[4096];
  const ssize_t length = recv(m_socket, message, sizeof message, 0);
  return {message, length > 0 ? static_cast<std::size_t>(length) : 0};
}

}  // namespace support
