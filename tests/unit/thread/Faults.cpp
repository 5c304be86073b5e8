#include "tests/unit/thread/Faults.h"

#include <pthread.h>

#include <cstddef>
#include <memory>
#include <new>
#include <utility>

namespace vorn {

FAULTS faults;  // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)
thread_local std::function<void()> beforeMutexLock;

namespace {

/// What a thread runs, and what it does before.
struct PREPARED_START {
  const std::function<void()>* before;
  void* (*function)(void*);
  void* argument;
};

void* StartPrepared(void* argument) {
  const std::unique_ptr<PREPARED_START> start(static_cast<PREPARED_START*>(argument));
  (*start->before)();
  return start->function(start->argument);
}

}  // namespace

/// operator new(std::size_t, const std::nothrow_t&), as the linker knows it.
#if __SIZEOF_SIZE_T__ == 8
#define NOTHROW_NEW(prefix) prefix##_ZnwmRKSt9nothrow_t
#else
#define NOTHROW_NEW(prefix) prefix##_ZnwjRKSt9nothrow_t
#endif

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*function)(void*), void* argument);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*function)(void*), void* argument);
int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex);
void* NOTHROW_NEW(__real_)(std::size_t size, const std::nothrow_t& tag) noexcept;
void* NOTHROW_NEW(__wrap_)(std::size_t size, const std::nothrow_t& tag) noexcept;

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*function)(void*), void* argument) {
  ++faults.threadsAsked;
  const int fault = faults.threadCreation;
  if (fault != 0) {
    return fault;
  }
  const std::function<void()>* const before = faults.threadStart;
  if (before == nullptr) {
    return __real_pthread_create(thread, attributes, function, argument);
  }
  auto start = std::make_unique<PREPARED_START>(PREPARED_START{before, function, argument});
  const int error = __real_pthread_create(thread, attributes, StartPrepared, start.get());
  if (error == 0) {
    static_cast<void>(start.release());  // the thread's own by now
  }
  return error;
}

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
  if (beforeMutexLock) {
    std::exchange(beforeMutexLock, nullptr)();
  }
  return __real_pthread_mutex_lock(mutex);
}

void* NOTHROW_NEW(__wrap_)(std::size_t size, const std::nothrow_t& tag) noexcept {
  return faults.allocation ? nullptr : NOTHROW_NEW(__real_)(size, tag);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)

}  // namespace vorn
