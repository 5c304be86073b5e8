#include "tests/fuzz/support/Sockets.h"

#include "tests/fuzz/support/Check.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace vorn {

namespace fuzz {

namespace {

SOCKETS* current = nullptr;  // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)

int FailWith(int error) {
  errno = error;
  return -1;
}

}  // namespace

SOCKETS::SOCKETS() {
  Require(current == nullptr, "one network at a time");
  current = this;
}

SOCKETS::~SOCKETS() {
  current = nullptr;
  Require(std::none_of(m_descriptors.begin(), m_descriptors.end(),
                       [](const auto& descriptor) { return descriptor.has_value(); }),
          "all sockets are closed at the end");
}

SOCKETS* SOCKETS::Current() {
  return current;
}

SOCKETS::DESCRIPTOR* SOCKETS::Find(int descriptor) {
  if (descriptor < kFirstDescriptor || descriptor > kLastDescriptor) {
    return nullptr;
  }
  auto& found = m_descriptors[static_cast<std::size_t>(descriptor - kFirstDescriptor)];
  Require(found.has_value(), "a closed descriptor is not used");
  return &*found;
}

int SOCKETS::Open(DESCRIPTOR descriptor) {
  auto* const free = std::find_if(m_descriptors.begin(), m_descriptors.end(),
                                  [](const auto& each) { return !each.has_value(); });
  Require(free != m_descriptors.end(), "descriptors do not add up");
  *free = descriptor;
  return kFirstDescriptor + static_cast<int>(free - m_descriptors.begin());
}

void SOCKETS::Close(int descriptor) {
  const DESCRIPTOR closed = *Find(descriptor);
  m_descriptors[static_cast<std::size_t>(descriptor - kFirstDescriptor)].reset();
  if (closed.isClient) {
    OnClosed(closed.tcpPort);
  }
}

}  // namespace fuzz

namespace {

using fuzz::SOCKETS;

SOCKETS::DESCRIPTOR* Find(int descriptor) {
  SOCKETS* const sockets = SOCKETS::Current();
  return sockets == nullptr ? nullptr : sockets->Find(descriptor);
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
int __real_bind(int socket, const sockaddr* address, socklen_t size);
int __real_listen(int socket, int backlog);
int __real_accept4(int socket, sockaddr* address, socklen_t* size, int flags);
int __real_select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional,
                  timeval* timeout) SYMBOL_OF("__real_", "select");
int __real_poll(pollfd* descriptors, nfds_t count, int timeout);
ssize_t __real_recv(int socket, void* buffer, size_t size, int flags);
ssize_t __real_send(int socket, const void* buffer, size_t size, int flags);
int __real_shutdown(int socket, int how);

int __wrap_close(int descriptor);
int __wrap_socket(int domain, int type, int protocol);
int __wrap_setsockopt(int socket, int level, int option, const void* value, socklen_t size)
    SYMBOL_OF("__wrap_", "setsockopt");
int __wrap_bind(int socket, const sockaddr* address, socklen_t size);
int __wrap_listen(int socket, int backlog);
int __wrap_accept4(int socket, sockaddr* address, socklen_t* size, int flags);
int __wrap_select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional,
                  timeval* timeout) SYMBOL_OF("__wrap_", "select");
int __wrap_poll(pollfd* descriptors, nfds_t count, int timeout);
ssize_t __wrap_recv(int socket, void* buffer, size_t size, int flags);
// What a hardened build makes of a recv whose size it cannot see.
ssize_t __wrap___recv_chk(int socket, void* buffer, size_t size, size_t room, int flags);
ssize_t __wrap_send(int socket, const void* buffer, size_t size, int flags);
int __wrap_shutdown(int socket, int how);

int __wrap_close(int descriptor) {
  if (Find(descriptor) == nullptr) {
    return __real_close(descriptor);
  }
  SOCKETS::Current()->Close(descriptor);
  return 0;
}

int __wrap_socket(int domain, int type, int protocol) {
  SOCKETS* const sockets = SOCKETS::Current();
  return sockets == nullptr ? __real_socket(domain, type, protocol) : sockets->Open({false, 0});
}

int __wrap_setsockopt(int socket, int level, int option, const void* value, socklen_t size) {
  return Find(socket) == nullptr ? __real_setsockopt(socket, level, option, value, size) : 0;
}

int __wrap_bind(int socket, const sockaddr* address, socklen_t size) {
  SOCKETS::DESCRIPTOR* const found = Find(socket);
  if (found == nullptr) {
    return __real_bind(socket, address, size);
  }
  sockaddr_in internet{};
  std::memcpy(&internet, address, sizeof internet);
  found->tcpPort = ntohs(internet.sin_port);
  return 0;
}

int __wrap_listen(int socket, int backlog) {
  return Find(socket) == nullptr ? __real_listen(socket, backlog) : 0;
}

int __wrap_accept4(int socket, sockaddr* address, socklen_t* size, int flags) {
  const SOCKETS::DESCRIPTOR* const found = Find(socket);
  if (found == nullptr) {
    return __real_accept4(socket, address, size, flags);
  }
  const int port = found->tcpPort;
  return SOCKETS::Current()->Accept(port) ? SOCKETS::Current()->Open({true, port})
                                          : fuzz::FailWith(ECONNABORTED);
}

int __wrap_select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional,
                  timeval* timeout) {
  const SOCKETS::DESCRIPTOR* const found = Find(count - 1);  // the daemon asks for one
  if (found == nullptr) {
    return __real_select(count, readable, writable, exceptional, timeout);
  }
  if (SOCKETS::Current()->IsReadable(found->tcpPort)) {
    return 1;
  }
  FD_ZERO(readable);
  return 0;
}

int __wrap_poll(pollfd* descriptors, nfds_t count, int timeout) {
  const SOCKETS::DESCRIPTOR* const found = count == 1 ? Find(descriptors->fd) : nullptr;
  if (found == nullptr) {
    return __real_poll(descriptors, count, timeout);
  }
  return SOCKETS::Current()->HasLeft(found->tcpPort) ? 1 : 0;
}

ssize_t __wrap_recv(int socket, void* buffer, size_t size, int flags) {
  const SOCKETS::DESCRIPTOR* const found = Find(socket);
  if (found == nullptr) {
    return __real_recv(socket, buffer, size, flags);
  }
  auto* const bytes = static_cast<char*>(buffer);
  return (flags & MSG_PEEK) != 0 ? SOCKETS::Current()->Peek(found->tcpPort, bytes, size)
                                 : SOCKETS::Current()->Receive(found->tcpPort, bytes, size);
}

ssize_t __wrap___recv_chk(int socket, void* buffer, size_t size, size_t /*room*/, int flags) {
  return __wrap_recv(socket, buffer, size, flags);
}

ssize_t __wrap_send(int socket, const void* buffer, size_t size, int flags) {
  const SOCKETS::DESCRIPTOR* const found = Find(socket);
  return found == nullptr
             ? __real_send(socket, buffer, size, flags)
             : SOCKETS::Current()->Send(found->tcpPort, static_cast<const char*>(buffer), size);
}

int __wrap_shutdown(int socket, int how) {
  return Find(socket) == nullptr ? __real_shutdown(socket, how) : 0;
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,readability-inconsistent-declaration-parameter-name)

}  // namespace vorn
