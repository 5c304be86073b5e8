#include "tests/fuzz/support/System.h"

#include "tests/fuzz/support/Check.h"

#include <pthread.h>

#include <utility>

namespace vorn {

namespace fuzz {

namespace {

SYSTEM* current = nullptr;  // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)

}  // namespace

SYSTEM::SYSTEM() {
  Require(current == nullptr, "one machine at a time");
  current = this;
}

SYSTEM::~SYSTEM() {
  current = nullptr;
  Require(m_threads.empty(), "all threads have ended");
}

SYSTEM* SYSTEM::Current() {
  return current;
}

void SYSTEM::AddWorker(void* (*run)(void*), void* worker) {
  m_threads.push_back({run, static_cast<CThread*>(worker)});
  m_workers.push_back(static_cast<CThread*>(worker));
}

void SYSTEM::LetWorkersEnd() {
  for (const THREAD& thread : std::exchange(m_threads, {})) {
    thread.worker->RequestStop();
    thread.run(thread.worker);
  }
}

void SYSTEM::DelayUs(std::int32_t delayUs) {
  if (delayUs > 0) {
    m_now += std::chrono::microseconds(delayUs);
    Pause(std::int64_t{delayUs} * 1000);
  }
}

void SYSTEM::Seconds(int seconds) {
  m_now += std::chrono::seconds(seconds);
  Pause(std::int64_t{seconds} * 1'000'000'000);
}

void SYSTEM::SecondsUnless(int seconds, const std::function<bool()>& isOver) {
  if (!isOver()) {
    Seconds(seconds);
  }
}

}  // namespace fuzz

using fuzz::SYSTEM;

// NOLINTBEGIN(bugprone-reserved-identifier,readability-inconsistent-declaration-parameter-name):
// the linker's names
extern "C" {

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                          void* argument);
int __real_pthread_join(pthread_t thread, void** result);

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                          void* argument);
int __wrap_pthread_join(pthread_t thread, void** result);

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

}  // namespace vorn
