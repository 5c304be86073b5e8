#include "tests/fuzz/support/System.h"

#include "tests/fuzz/support/Check.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <termios.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string_view>
#include <utility>

namespace fuzz {

namespace {

SYSTEM* current = nullptr;  // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)

constexpr const char* kAdapterPath = "/dev/ttyUSB";
constexpr std::int64_t kNanoseconds = 1'000'000'000;

int FailWith(int error) {
  errno = error;
  return -1;
}

}  // namespace

SYSTEM::SYSTEM() {
  Require(current == nullptr, "one machine at a time");
  current = this;
}

SYSTEM::~SYSTEM() {
  current = nullptr;
  Require(std::none_of(m_descriptors.begin(), m_descriptors.end(),
                       [](const auto& descriptor) { return descriptor.has_value(); }),
          "all descriptors are closed at the end");
  Require(m_threads.empty(), "all threads have ended");
}

SYSTEM* SYSTEM::Current() {
  return current;
}

ssize_t SYSTEM::ReadPort(std::uint8_t*, std::size_t) {
  return FailWith(EAGAIN);
}

ssize_t SYSTEM::WritePort(const std::uint8_t*, std::size_t) {
  return FailWith(EIO);
}

bool SYSTEM::Accept(int) {
  return false;
}

bool SYSTEM::IsReadable(int) {
  return false;
}

bool SYSTEM::HasLeft(int) {
  return false;
}

ssize_t SYSTEM::Peek(int, char*, std::size_t) {
  return 0;
}

ssize_t SYSTEM::Receive(int, char*, std::size_t) {
  return 0;
}

ssize_t SYSTEM::Send(int, const char*, std::size_t) {
  return FailWith(EPIPE);
}

SYSTEM::DESCRIPTOR* SYSTEM::Find(int descriptor) {
  if (descriptor < kFirstDescriptor || descriptor > kLastDescriptor) {
    return nullptr;
  }
  auto& found = m_descriptors[static_cast<std::size_t>(descriptor - kFirstDescriptor)];
  Require(found.has_value(), "a closed descriptor is not used");
  return &*found;
}

int SYSTEM::Open(DESCRIPTOR descriptor) {
  auto* const free = std::find_if(m_descriptors.begin(), m_descriptors.end(),
                                  [](const auto& each) { return !each.has_value(); });
  Require(free != m_descriptors.end(), "descriptors do not add up");
  *free = descriptor;
  return kFirstDescriptor + static_cast<int>(free - m_descriptors.begin());
}

void SYSTEM::Close(int descriptor) {
  const DESCRIPTOR closed = *Find(descriptor);
  m_descriptors[static_cast<std::size_t>(descriptor - kFirstDescriptor)].reset();
  if (closed.kind == DESCRIPTOR::KIND::kClient) {
    OnClosed(closed.tcpPort);
  }
}

void SYSTEM::AddWorker(void* (*run)(void*), void* worker) {
  m_threads.push_back({run, worker});
  m_workers.push_back(static_cast<CThread*>(worker));
}

void SYSTEM::OnPause(std::int64_t nanoseconds) {
  if (!m_ending) {
    Pause(nanoseconds);
    return;
  }
  // Each of them has been asked to stop, so its loop ends at once.
  for (const THREAD& thread : std::exchange(m_threads, {})) {
    thread.run(thread.worker);
  }
}

}  // namespace fuzz

namespace {

using fuzz::SYSTEM;
using KIND = SYSTEM::DESCRIPTOR::KIND;

SYSTEM::DESCRIPTOR* Find(int descriptor) {
  SYSTEM* const system = SYSTEM::Current();
  return system == nullptr ? nullptr : system->Find(descriptor);
}

bool Is(int descriptor, KIND kind) {
  const SYSTEM::DESCRIPTOR* const found = Find(descriptor);
  return found != nullptr && found->kind == kind;
}

/// What a shell command would print, as a stream; the text of one stream at a time.
FILE* StreamOf(const std::string& text) {
  static std::string printed;
  printed = text;
  return fmemopen(printed.data(), printed.size(), "r");
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier,readability-inconsistent-declaration-parameter-name):
// the linker's names
extern "C" {

int __real_open64(const char* path, int flags, ...);
int __real_close(int descriptor);
ssize_t __real_read(int descriptor, void* bytes, size_t count);
ssize_t __real_write(int descriptor, const void* bytes, size_t count);
int __real_ioctl(int descriptor, unsigned long request, ...);
int __real_tcsetattr(int descriptor, int when, const termios* settings);
int __real_nanosleep(const timespec* request, timespec* remaining);
FILE* __real_popen(const char* command, const char* mode);
int __real_pclose(FILE* stream);
int __real_socket(int domain, int type, int protocol);
int __real_setsockopt(int socket, int level, int option, const void* value, socklen_t size);
int __real_bind(int socket, const sockaddr* address, socklen_t size);
int __real_listen(int socket, int backlog);
int __real_accept4(int socket, sockaddr* address, socklen_t* size, int flags);
int __real_select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional,
                  timeval* timeout);
int __real_poll(pollfd* descriptors, nfds_t count, int timeout);
ssize_t __real_recv(int socket, void* buffer, size_t size, int flags);
ssize_t __real_send(int socket, const void* buffer, size_t size, int flags);
int __real_shutdown(int socket, int how);
int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                          void* argument);
int __real_pthread_join(pthread_t thread, void** result);

int __wrap_open64(const char* path, int flags, ...);
int __wrap_close(int descriptor);
ssize_t __wrap_read(int descriptor, void* bytes, size_t count);
ssize_t __wrap_write(int descriptor, const void* bytes, size_t count);
int __wrap_ioctl(int descriptor, unsigned long request, ...);
int __wrap_tcsetattr(int descriptor, int when, const termios* settings);
int __wrap_nanosleep(const timespec* request, timespec* remaining);
FILE* __wrap_popen(const char* command, const char* mode);
int __wrap_pclose(FILE* stream);
int __wrap_socket(int domain, int type, int protocol);
int __wrap_setsockopt(int socket, int level, int option, const void* value, socklen_t size);
int __wrap_bind(int socket, const sockaddr* address, socklen_t size);
int __wrap_listen(int socket, int backlog);
int __wrap_accept4(int socket, sockaddr* address, socklen_t* size, int flags);
int __wrap_select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional,
                  timeval* timeout);
int __wrap_poll(pollfd* descriptors, nfds_t count, int timeout);
ssize_t __wrap_recv(int socket, void* buffer, size_t size, int flags);
// What a hardened build makes of a recv whose size it cannot see.
ssize_t __wrap___recv_chk(int socket, void* buffer, size_t size, size_t room, int flags);
ssize_t __wrap_send(int socket, const void* buffer, size_t size, int flags);
int __wrap_shutdown(int socket, int how);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                          void* argument);
int __wrap_pthread_join(pthread_t thread, void** result);

// --- files and the port -------------------------------------------------------------------------

int __wrap_open64(const char* path, int flags, ...) {
  SYSTEM* const system = SYSTEM::Current();
  if (system != nullptr && std::string_view(path).starts_with(fuzz::kAdapterPath)) {
    return system->OpenPort() ? system->Open({KIND::kPort, 0}) : fuzz::FailWith(ENOENT);
  }
  va_list arguments;
  va_start(arguments, flags);
  const auto mode = static_cast<mode_t>((flags & O_CREAT) != 0 ? va_arg(arguments, int) : 0);
  va_end(arguments);
  return __real_open64(path, flags, mode);
}

int __wrap_close(int descriptor) {
  if (Find(descriptor) == nullptr) {
    return __real_close(descriptor);
  }
  SYSTEM::Current()->Close(descriptor);
  return 0;
}

ssize_t __wrap_read(int descriptor, void* bytes, size_t count) {
  return Is(descriptor, KIND::kPort)
             ? SYSTEM::Current()->ReadPort(static_cast<std::uint8_t*>(bytes), count)
             : __real_read(descriptor, bytes, count);
}

ssize_t __wrap_write(int descriptor, const void* bytes, size_t count) {
  return Is(descriptor, KIND::kPort)
             ? SYSTEM::Current()->WritePort(static_cast<const std::uint8_t*>(bytes), count)
             : __real_write(descriptor, bytes, count);
}

int __wrap_ioctl(int descriptor, unsigned long request, ...) {
  if (Is(descriptor, KIND::kPort)) {
    return fuzz::FailWith(ENOTTY);
  }
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  return __real_ioctl(descriptor, request, argument);
}

int __wrap_tcsetattr(int descriptor, int when, const termios* settings) {
  return Is(descriptor, KIND::kPort) ? 0 : __real_tcsetattr(descriptor, when, settings);
}

// --- pauses and commands ------------------------------------------------------------------------

int __wrap_nanosleep(const timespec* request, timespec* remaining) {
  SYSTEM* const system = SYSTEM::Current();
  if (system == nullptr) {
    return __real_nanosleep(request, remaining);
  }
  system->OnPause(request->tv_sec * fuzz::kNanoseconds + request->tv_nsec);
  return 0;
}

FILE* __wrap_popen(const char* command, const char* mode) {
  SYSTEM* const system = SYSTEM::Current();
  if (system == nullptr) {
    return __real_popen(command, mode);
  }
  constexpr std::string_view kSleep = "sleep ";
  if (std::string_view(command).starts_with(kSleep)) {
    system->OnPause(std::atol(command + kSleep.size()) * fuzz::kNanoseconds);
    return StreamOf("");
  }
  fuzz::Require(std::string_view(command) == "ls /dev | grep ttyUSB", "a known command", command);
  return StreamOf(system->Adapters());
}

int __wrap_pclose(FILE* stream) {
  return SYSTEM::Current() == nullptr ? __real_pclose(stream) : std::fclose(stream);
}

// --- sockets ------------------------------------------------------------------------------------

int __wrap_socket(int domain, int type, int protocol) {
  SYSTEM* const system = SYSTEM::Current();
  return system == nullptr ? __real_socket(domain, type, protocol)
                           : system->Open({KIND::kListener, 0});
}

int __wrap_setsockopt(int socket, int level, int option, const void* value, socklen_t size) {
  return Find(socket) == nullptr ? __real_setsockopt(socket, level, option, value, size) : 0;
}

int __wrap_bind(int socket, const sockaddr* address, socklen_t size) {
  SYSTEM::DESCRIPTOR* const found = Find(socket);
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
  const SYSTEM::DESCRIPTOR* const found = Find(socket);
  if (found == nullptr) {
    return __real_accept4(socket, address, size, flags);
  }
  const int port = found->tcpPort;
  return SYSTEM::Current()->Accept(port) ? SYSTEM::Current()->Open({KIND::kClient, port})
                                         : fuzz::FailWith(ECONNABORTED);
}

int __wrap_select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional,
                  timeval* timeout) {
  const SYSTEM::DESCRIPTOR* const found = Find(count - 1);  // the daemon asks for one
  if (found == nullptr) {
    return __real_select(count, readable, writable, exceptional, timeout);
  }
  if (SYSTEM::Current()->IsReadable(found->tcpPort)) {
    return 1;
  }
  FD_ZERO(readable);
  return 0;
}

int __wrap_poll(pollfd* descriptors, nfds_t count, int timeout) {
  const SYSTEM::DESCRIPTOR* const found = count == 1 ? Find(descriptors->fd) : nullptr;
  if (found == nullptr) {
    return __real_poll(descriptors, count, timeout);
  }
  return SYSTEM::Current()->HasLeft(found->tcpPort) ? 1 : 0;
}

ssize_t __wrap_recv(int socket, void* buffer, size_t size, int flags) {
  const SYSTEM::DESCRIPTOR* const found = Find(socket);
  if (found == nullptr) {
    return __real_recv(socket, buffer, size, flags);
  }
  auto* const bytes = static_cast<char*>(buffer);
  return (flags & MSG_PEEK) != 0 ? SYSTEM::Current()->Peek(found->tcpPort, bytes, size)
                                 : SYSTEM::Current()->Receive(found->tcpPort, bytes, size);
}

ssize_t __wrap___recv_chk(int socket, void* buffer, size_t size, size_t /*room*/, int flags) {
  return __wrap_recv(socket, buffer, size, flags);
}

ssize_t __wrap_send(int socket, const void* buffer, size_t size, int flags) {
  const SYSTEM::DESCRIPTOR* const found = Find(socket);
  return found == nullptr
             ? __real_send(socket, buffer, size, flags)
             : SYSTEM::Current()->Send(found->tcpPort, static_cast<const char*>(buffer), size);
}

int __wrap_shutdown(int socket, int how) {
  return Find(socket) == nullptr ? __real_shutdown(socket, how) : 0;
}

// --- threads ------------------------------------------------------------------------------------

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                          void* argument) {
  SYSTEM* const system = SYSTEM::Current();
  if (system == nullptr) {
    return __real_pthread_create(thread, attributes, run, argument);
  }
  *thread = pthread_t{};
  system->AddWorker(run, argument);
  return 0;
}

int __wrap_pthread_join(pthread_t thread, void** result) {
  return SYSTEM::Current() == nullptr ? __real_pthread_join(thread, result) : 0;
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier,readability-inconsistent-declaration-parameter-name)
