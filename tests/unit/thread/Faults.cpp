#include "tests/unit/thread/Faults.h"

#include <pthread.h>

#include <cerrno>
#include <new>

FAULTS faults;  // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*function)(void*), void* argument);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*function)(void*), void* argument);
FILE* __real_popen(const char* command, const char* mode);
FILE* __wrap_popen(const char* command, const char* mode);

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*function)(void*), void* argument) {
  ++faults.threadsAsked;
  const int fault = faults.threadCreation;
  return fault != 0 ? fault : __real_pthread_create(thread, attributes, function, argument);
}

FILE* __wrap_popen(const char* command, const char* mode) {
  if (faults.childStart) {
    errno = EAGAIN;
    return nullptr;
  }
  return __real_popen(command, mode);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)

void* operator new(std::size_t size, const std::nothrow_t& /*unused*/) noexcept {
  if (faults.allocation) {
    return nullptr;
  }
  try {
    return ::operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
