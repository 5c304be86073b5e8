#include "tests/fuzz/ClientSessionNetwork.h"

#include "tests/fuzz/support/Check.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace client {

namespace fuzz {

using vorn::fuzz::Require;

namespace {

NETWORK* current = nullptr;  // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)

int FailWith(int error) {
  errno = error;
  return -1;
}

}  // namespace

NETWORK::NETWORK() {
  Require(current == nullptr, "one network at a time");
  current = this;
}

NETWORK::~NETWORK() {
  Require(!IsOpen(), "every connection is closed");
  current = nullptr;
}

NETWORK* NETWORK::Current() {
  return current;
}

void NETWORK::Say(std::string_view piece) {
  if (m_isConnected && !m_isEnded && !piece.empty()) {
    m_pieces.emplace_back(piece);
  }
}

void NETWORK::Close(bool isReset) {
  if (m_isConnected) {
    m_isReset = isReset && !m_isEnded;
    m_isEnded = true;
  }
}

bool NETWORK::Owns(int descriptor) const {
  Require(descriptor < kFirstDescriptor || descriptor == m_descriptor, "it is open");
  return IsOpen() && descriptor == m_descriptor;
}

int NETWORK::Socket() {
  Require(!IsOpen(), "one connection at a time");
  m_descriptor = m_nextDescriptor++;
  m_isConnected = m_isToItself = m_isEnded = m_isReset = m_isShut = false;
  m_error = 0;
  m_pieces.clear();
  m_read.clear();
  m_written.clear();
  return m_descriptor;
}

void NETWORK::CloseSocket() {
  m_descriptor = -1;
}

int NETWORK::Connect() {
  switch (m_connecting) {
    case CONNECTING::kWorks:
    case CONNECTING::kToItself:
      m_isConnected = true;
      m_isToItself = m_connecting == CONNECTING::kToItself;
      return 0;
    case CONNECTING::kIsRefused:
      return FailWith(ECONNREFUSED);
    case CONNECTING::kFails:
      return FailWith(ENETUNREACH);
    default:
      return FailWith(EINPROGRESS);
  }
}

/// An attempt to connect that takes time is looked at like this, and comes to its end.
bool NETWORK::HasEvents(short events) {
  if (!m_isConnected && m_connecting == CONNECTING::kHangs) {
    return false;
  }
  if (!m_isConnected) {
    m_error =
        m_connecting == CONNECTING::kFails ? EHOSTUNREACH
        : m_connecting == CONNECTING::kIsRefused || m_connecting == CONNECTING::kIsRefusedLater
            ? ECONNREFUSED
            : 0;
    m_isConnected = m_error == 0;
    return true;
  }
  return ((events & POLLOUT) != 0 && m_takes > 0) || !m_pieces.empty() || m_isEnded;
}

ssize_t NETWORK::Receive(char* bytes, std::size_t count) {
  Require(m_isConnected && !m_isToItself, "what is read is connected, with another");
  if (m_pieces.empty()) {
    return m_isReset ? FailWith(ECONNRESET) : m_isEnded ? 0 : FailWith(EAGAIN);
  }
  std::string& piece = m_pieces.front();
  const std::size_t size = std::min(count, piece.size());
  std::copy_n(piece.data(), size, bytes);
  m_read.append(piece, 0, size);
  piece.erase(0, size);
  if (piece.empty()) {
    m_pieces.pop_front();
  }
  return static_cast<ssize_t>(size);
}

ssize_t NETWORK::Send(const char* bytes, std::size_t count) {
  Require(m_isConnected && !m_isShut, "what is written to is connected");
  Require(count > 0, "something is written");
  if (m_isEnded) {
    return FailWith(EPIPE);
  }
  const std::size_t taken = std::min(m_takes, count);
  m_written.append(bytes, taken);
  m_takes -= m_takes == std::string::npos ? 0 : taken;
  return taken == 0 ? FailWith(EAGAIN) : static_cast<ssize_t>(taken);
}

void NETWORK::Shutdown(int how) {
  m_isShut = true;
  m_isEnded = m_isEnded || how == SHUT_RDWR;
}

}  // namespace fuzz

namespace {

using fuzz::NETWORK;

NETWORK* Find(int descriptor) {
  NETWORK* const network = NETWORK::Current();
  return network != nullptr && network->Owns(descriptor) ? network : nullptr;
}

int Name(sockaddr* address, socklen_t* size, in_port_t port) {
  sockaddr_in name{};
  name.sin_family = AF_INET;
  name.sin_port = port;
  std::memcpy(address, &name, std::min<std::size_t>(*size, sizeof(name)));
  *size = sizeof(name);
  return 0;
}

}  // namespace

// Where times have 64 bits only because the build asks for it, on the 32-bit board, the C library
// knows two of the calls by other names.
#ifdef __USE_TIME_BITS64
#define SYMBOL_OF(prefix, name) asm(prefix "__" name "64")
#else
#define SYMBOL_OF(prefix, name) asm(prefix name)
#endif

// NOLINTBEGIN(bugprone-reserved-identifier,readability-inconsistent-declaration-parameter-name):
// the linker's names
extern "C" {

int __real_close(int descriptor);
int __real_socket(int domain, int type, int protocol);
int __real_setsockopt(int socket, int level, int option, const void* value, socklen_t size)
    SYMBOL_OF("__real_", "setsockopt");
int __real_getsockopt(int socket, int level, int option, void* value, socklen_t* size)
    SYMBOL_OF("__real_", "getsockopt");
int __real_connect(int socket, const sockaddr* address, socklen_t size);
int __real_getsockname(int socket, sockaddr* address, socklen_t* size);
int __real_getpeername(int socket, sockaddr* address, socklen_t* size);
int __real_poll(pollfd* descriptors, nfds_t count, int timeout);
ssize_t __real_recv(int socket, void* buffer, size_t size, int flags);
ssize_t __real_send(int socket, const void* buffer, size_t size, int flags);
int __real_shutdown(int socket, int how);

int __wrap_close(int descriptor);
int __wrap_socket(int domain, int type, int protocol);
int __wrap_setsockopt(int socket, int level, int option, const void* value, socklen_t size)
    SYMBOL_OF("__wrap_", "setsockopt");
int __wrap_getsockopt(int socket, int level, int option, void* value, socklen_t* size)
    SYMBOL_OF("__wrap_", "getsockopt");
int __wrap_connect(int socket, const sockaddr* address, socklen_t size);
int __wrap_getsockname(int socket, sockaddr* address, socklen_t* size);
int __wrap_getpeername(int socket, sockaddr* address, socklen_t* size);
int __wrap_poll(pollfd* descriptors, nfds_t count, int timeout);
ssize_t __wrap_recv(int socket, void* buffer, size_t size, int flags);
/// What recv is where the C library checks the size.
ssize_t __wrap___recv_chk(int socket, void* buffer, size_t size, size_t room, int flags);
ssize_t __wrap_send(int socket, const void* buffer, size_t size, int flags);
int __wrap_shutdown(int socket, int how);

int __wrap_close(int descriptor) {
  NETWORK* const network = Find(descriptor);
  if (network == nullptr) {
    return __real_close(descriptor);
  }
  network->CloseSocket();
  return 0;
}

int __wrap_socket(int domain, int type, int protocol) {
  NETWORK* const network = NETWORK::Current();
  return network == nullptr ? __real_socket(domain, type, protocol) : network->Socket();
}

int __wrap_setsockopt(int socket, int level, int option, const void* value, socklen_t size) {
  return Find(socket) == nullptr ? __real_setsockopt(socket, level, option, value, size) : 0;
}

int __wrap_getsockopt(int socket, int level, int option, void* value, socklen_t* size) {
  NETWORK* const network = Find(socket);
  if (network == nullptr) {
    return __real_getsockopt(socket, level, option, value, size);
  }
  const int error = network->Error();
  std::memcpy(value, &error, std::min<std::size_t>(*size, sizeof(error)));
  return 0;
}

int __wrap_connect(int socket, const sockaddr* address, socklen_t size) {
  NETWORK* const network = Find(socket);
  return network == nullptr ? __real_connect(socket, address, size) : network->Connect();
}

int __wrap_getsockname(int socket, sockaddr* address, socklen_t* size) {
  return Find(socket) == nullptr ? __real_getsockname(socket, address, size)
                                 : Name(address, size, Find(socket)->IsToItself() ? 2 : 1);
}

int __wrap_getpeername(int socket, sockaddr* address, socklen_t* size) {
  return Find(socket) == nullptr ? __real_getpeername(socket, address, size)
                                 : Name(address, size, 2);
}

int __wrap_poll(pollfd* descriptors, nfds_t count, int timeout) {
  NETWORK* const network = count == 1 ? Find(descriptors->fd) : nullptr;
  if (network == nullptr) {
    return __real_poll(descriptors, count, timeout);
  }
  const bool has = network->HasEvents(descriptors->events);
  descriptors->revents = has ? descriptors->events : short{0};
  return has ? 1 : 0;
}

ssize_t __wrap_recv(int socket, void* buffer, size_t size, int flags) {
  NETWORK* const network = Find(socket);
  return network == nullptr ? __real_recv(socket, buffer, size, flags)
                            : network->Receive(static_cast<char*>(buffer), size);
}

ssize_t __wrap___recv_chk(int socket, void* buffer, size_t size, size_t room, int flags) {
  vorn::fuzz::Require(size <= room, "a read has room");
  return __wrap_recv(socket, buffer, size, flags);
}

ssize_t __wrap_send(int socket, const void* buffer, size_t size, int flags) {
  NETWORK* const network = Find(socket);
  if (network == nullptr) {
    return __real_send(socket, buffer, size, flags);
  }
  vorn::fuzz::Require((flags & MSG_NOSIGNAL) != 0, "no signal is raised");
  return network->Send(static_cast<const char*>(buffer), size);
}

int __wrap_shutdown(int socket, int how) {
  NETWORK* const network = Find(socket);
  if (network == nullptr) {
    return __real_shutdown(socket, how);
  }
  network->Shutdown(how);
  return 0;
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,readability-inconsistent-declaration-parameter-name)

}  // namespace client
