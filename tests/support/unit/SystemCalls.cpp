#include "tests/support/unit/SystemCalls.h"

#include "tests/support/unit/FarEnd.h"

#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <ctime>
#include <mutex>

namespace unit {

namespace {

// NOLINTBEGIN(cppcoreguidelines-avoid-non-const-global-variables)
std::mutex recordLock;
std::atomic<bool> recording{false};
std::set<CALLS_RECORDED::PAUSE> pauses;
std::vector<unsigned long> requests;
// NOLINTEND(cppcoreguidelines-avoid-non-const-global-variables)

}  // namespace

CALLS_RECORDED::CALLS_RECORDED() {
  const std::lock_guard lock(recordLock);
  pauses.clear();
  requests.clear();
  recording = true;
}

CALLS_RECORDED::~CALLS_RECORDED() {
  recording = false;
}

std::set<CALLS_RECORDED::PAUSE> CALLS_RECORDED::Pauses() const {
  const std::lock_guard lock(recordLock);
  return pauses;
}

std::size_t CALLS_RECORDED::ThreadsThatPaused(std::int64_t nanoseconds) const {
  std::size_t count = 0;
  for (const PAUSE& pause : Pauses()) {
    count += pause.second == nanoseconds ? 1 : 0;
  }
  return count;
}

std::vector<unsigned long> CALLS_RECORDED::Requests() const {
  const std::lock_guard lock(recordLock);
  return requests;
}

}  // namespace unit

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)

extern "C" ssize_t read(int descriptor, void* bytes, std::size_t count) {
  unit::FAR_END* const farEnd = unit::FAR_END::Of(descriptor);
  if (farEnd == nullptr) {
    return syscall(SYS_read, descriptor, bytes, count);
  }
  if (!farEnd->BeforeRead()) {
    errno = EAGAIN;
    return -1;
  }
  const ssize_t taken = syscall(SYS_read, descriptor, bytes, count);
  const int error = errno;
  farEnd->AfterRead(taken);
  errno = error;
  return taken;
}

extern "C" ssize_t write(int descriptor, const void* bytes, std::size_t count) {
  unit::FAR_END* const farEnd = unit::FAR_END::Of(descriptor);
  if (farEnd == nullptr) {
    return syscall(SYS_write, descriptor, bytes, count);
  }
  const ssize_t written = syscall(SYS_write, descriptor, bytes, farEnd->BeforeWrite(count));
  const int error = errno;
  farEnd->AfterWrite(written);
  errno = error;
  return written;
}

extern "C" int ioctl(int descriptor, unsigned long request, ...) noexcept {
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  if (unit::recording) {
    const std::lock_guard lock(unit::recordLock);
    unit::requests.push_back(request);
  }
  return static_cast<int>(syscall(SYS_ioctl, descriptor, request, argument));
}

extern "C" int nanosleep(const timespec* request, timespec* remaining) {
  if (unit::recording) {
    const std::lock_guard lock(unit::recordLock);
    unit::pauses.emplace(pthread_self(),
                         request->tv_sec * std::int64_t{1'000'000'000} + request->tv_nsec);
  }
  return static_cast<int>(syscall(SYS_nanosleep, request, remaining));
}

// NOLINTEND(readability-inconsistent-declaration-parameter-name)
