#include "tests/unit/tcp/SocketCalls.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <mutex>

namespace vorn {

// NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables)
SOCKET_CALLS socketCalls;

namespace {

std::mutex sizesLock;
std::vector<std::size_t> sizes;

}  // namespace
// NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables)

namespace {

/// Tests run on the main thread, and a worker's thread is the only other that makes these calls.
bool OnWorker() {
  return gettid() != getpid();
}

}  // namespace

void CALL::Fail(int error, int times, int before) {
  m_error = error;
  m_before = before;
  m_isForWorker = true;
  m_times = times;
}

void CALL::FailOutsideTheWorker(int error, int times) {
  Fail(error, 0);
  m_isForWorker = false;
  m_times = times;
}

void CALL::Reset() {
  m_times = 0;
  m_gate = nullptr;
  m_begun = 0;
  m_ended = 0;
}

void CALL::Begin() {
  m_begun += OnWorker() ? 1 : 0;
}

void CALL::End() {
  m_ended += OnWorker() ? 1 : 0;
}

void CALL::PassGate() {
  unit::GATE* const gate = m_gate;
  if (gate != nullptr && OnWorker()) {
    const int error = errno;
    gate->Pass();
    errno = error;
  }
}

bool CALL::Fails() {
  if (m_times == 0 || OnWorker() != m_isForWorker) {
    return false;
  }
  if (m_before > 0) {
    --m_before;
    return false;
  }
  --m_times;
  errno = m_error;
  return true;
}

void SOCKET_CALLS::Reset() {
  for (CALL* const call :
       {&socket, &reuseAddress, &noDelay, &bind, &listen, &accept, &select, &recv, &send, &close}) {
    call->Reset();
  }
  sendLimit = 0;
  const std::lock_guard lock(sizesLock);
  sizes.clear();
}

std::vector<std::size_t> SOCKET_CALLS::SendSizes() const {
  const std::lock_guard lock(sizesLock);
  return sizes;
}

// Where times have 64 bits only because the build asks for it, on the 32-bit board, the C library
// has two of what takes a time or may take one, and the daemon calls the second.
#ifdef __USE_TIME_BITS64
#define SYMBOL_OF(prefix, name) asm(prefix "__" name "64")
#else
#define SYMBOL_OF(prefix, name) asm(prefix name)
#endif

// NOLINTBEGIN(bugprone-reserved-identifier,readability-inconsistent-declaration-parameter-name):
// the linker's names
extern "C" {

int __real_socket(int domain, int type, int protocol);
int __real_setsockopt(int socket, int level, int option, const void* value, socklen_t size)
    SYMBOL_OF("__real_", "setsockopt");
int __real_bind(int socket, const sockaddr* address, socklen_t size);
int __real_listen(int socket, int backlog);
int __real_accept4(int socket, sockaddr* address, socklen_t* size, int flags);
int __real_select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional,
                  timeval* timeout) SYMBOL_OF("__real_", "select");
ssize_t __real_recv(int socket, void* buffer, size_t size, int flags);
ssize_t __real_send(int socket, const void* buffer, size_t size, int flags);
int __real_close(int descriptor);

int __wrap_socket(int domain, int type, int protocol);
int __wrap_setsockopt(int socket, int level, int option, const void* value, socklen_t size)
    SYMBOL_OF("__wrap_", "setsockopt");
int __wrap_bind(int socket, const sockaddr* address, socklen_t size);
int __wrap_listen(int socket, int backlog);
int __wrap_accept4(int socket, sockaddr* address, socklen_t* size, int flags);
int __wrap_select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional,
                  timeval* timeout) SYMBOL_OF("__wrap_", "select");
ssize_t __wrap_recv(int socket, void* buffer, size_t size, int flags);
// What a hardened build makes of a recv whose size it cannot see.
ssize_t __wrap___recv_chk(int socket, void* buffer, size_t size, size_t room, int flags);
ssize_t __wrap_send(int socket, const void* buffer, size_t size, int flags);
int __wrap_close(int descriptor);

int __wrap_socket(int domain, int type, int protocol) {
  socketCalls.socket.PassGate();
  return socketCalls.socket.Fails() ? -1 : __real_socket(domain, type, protocol);
}

int __wrap_setsockopt(int socket, int level, int option, const void* value, socklen_t size) {
  if (level == SOL_SOCKET && option == SO_REUSEADDR && socketCalls.reuseAddress.Fails()) {
    return -1;
  }
  if (level == IPPROTO_TCP && option == TCP_NODELAY) {
    socketCalls.noDelay.PassGate();
  }
  return __real_setsockopt(socket, level, option, value, size);
}

int __wrap_bind(int socket, const sockaddr* address, socklen_t size) {
  return socketCalls.bind.Fails() ? -1 : __real_bind(socket, address, size);
}

int __wrap_listen(int socket, int backlog) {
  return socketCalls.listen.Fails() ? -1 : __real_listen(socket, backlog);
}

int __wrap_accept4(int socket, sockaddr* address, socklen_t* size, int flags) {
  CALL& call = socketCalls.accept;
  call.Begin();
  const int result = call.Fails() ? -1 : __real_accept4(socket, address, size, flags);
  call.PassGate();
  call.End();
  return result;
}

int __wrap_select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional,
                  timeval* timeout) {
  CALL& call = socketCalls.select;
  call.Begin();
  call.PassGate();
  const int result =
      call.Fails() ? -1 : __real_select(count, readable, writable, exceptional, timeout);
  call.End();
  return result;
}

ssize_t __wrap_recv(int socket, void* buffer, size_t size, int flags) {
  CALL& call = socketCalls.recv;
  call.Begin();
  call.PassGate();
  const ssize_t result = call.Fails() ? -1 : __real_recv(socket, buffer, size, flags);
  call.End();
  return result;
}

ssize_t __wrap___recv_chk(int socket, void* buffer, size_t size, size_t /*room*/, int flags) {
  return __wrap_recv(socket, buffer, size, flags);
}

ssize_t __wrap_send(int socket, const void* buffer, size_t size, int flags) {
  if (!OnWorker()) {
    return __real_send(socket, buffer, size, flags);
  }
  CALL& call = socketCalls.send;
  call.Begin();
  call.PassGate();
  {
    const std::lock_guard lock(sizesLock);
    sizes.push_back(size);
  }
  const std::size_t limit = socketCalls.sendLimit;
  const ssize_t result =
      call.Fails() ? -1
                   : __real_send(socket, buffer, limit == 0 ? size : std::min(size, limit), flags);
  call.End();
  return result;
}

int __wrap_close(int descriptor) {
  struct stat status {};
  // A log line closes descriptors too.
  if (fstat(descriptor, &status) == 0 && S_ISSOCK(status.st_mode)) {
    socketCalls.close.PassGate();
  }
  return __real_close(descriptor);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,readability-inconsistent-declaration-parameter-name)

}  // namespace vorn
