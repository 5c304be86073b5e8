#include "bench/compare/Loop.h"

#include <signal.h>
#include <sys/epoll.h>
#include <sys/timerfd.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace bench {

namespace {

volatile sig_atomic_t isInterrupted = 0;

void NoteSignal(int /*number*/) {
  isInterrupted = 1;
}

}  // namespace

void FailOf(const std::string& what) {
  throw FAILURE(what + ": " + std::generic_category().message(errno));
}

void CatchSignals() {
  struct sigaction action {};
  action.sa_handler = NoteSignal;
  for (const int number : {SIGINT, SIGTERM}) {
    sigaction(number, &action, nullptr);
  }
}

// --- timer --------------------------------------------------------------------------------------

TIMER::TIMER() : m_descriptor(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {
  if (m_descriptor.Get() < 0) {
    FailOf("timerfd");
  }
}

void TIMER::Set(TIME when) {
  if (when == m_when && when > CLOCK::now()) {
    return;
  }
  m_when = when;
  itimerspec setting{};
  if (when != TIME::max()) {
    const auto since = std::chrono::duration_cast<NANOSECONDS>(when.time_since_epoch()).count();
    setting.it_value.tv_sec = static_cast<time_t>(since / 1'000'000'000);
    setting.it_value.tv_nsec = static_cast<long>(since % 1'000'000'000);
  }
  timerfd_settime(m_descriptor.Get(), TFD_TIMER_ABSTIME, &setting, nullptr);
}

// --- loop ---------------------------------------------------------------------------------------

LOOP::LOOP() : m_events(epoll_create1(EPOLL_CLOEXEC)) {
  if (m_events.Get() < 0) {
    FailOf("epoll");
  }
  Watch(m_limit.Get(), [this] { m_limit.Set(TIME::max()); });
}

void LOOP::Watch(int descriptor, HANDLER handler) {
  m_handlers[descriptor] = std::move(handler);
  epoll_event wanted{};
  wanted.events = EPOLLIN;
  wanted.data.fd = descriptor;
  if (epoll_ctl(m_events.Get(), EPOLL_CTL_ADD, descriptor, &wanted) != 0) {
    FailOf("epoll_ctl");
  }
}

void LOOP::WantRoom(int descriptor, bool wanted) {
  epoll_event events{};
  events.events = wanted ? EPOLLIN | EPOLLOUT : EPOLLIN;
  events.data.fd = descriptor;
  epoll_ctl(m_events.Get(), EPOLL_CTL_MOD, descriptor, &events);
}

void LOOP::Forget(int descriptor) {
  epoll_ctl(m_events.Get(), EPOLL_CTL_DEL, descriptor, nullptr);
  m_handlers.erase(descriptor);
}

bool LOOP::Run(TIME until, const std::function<bool()>& done) {
  while (!done()) {
    if (CLOCK::now() >= until) {
      return false;
    }
    m_limit.Set(until);
    std::array<epoll_event, 8> ready{};
    const int count = epoll_wait(m_events.Get(), ready.data(), static_cast<int>(ready.size()), -1);
    if (isInterrupted != 0) {
      throw FAILURE("interrupted");
    }
    for (int i = 0; i < count; ++i) {
      // One that an earlier handler has forgotten is skipped.
      const auto found = m_handlers.find(ready.at(static_cast<std::size_t>(i)).data.fd);
      if (found != m_handlers.end()) {
        found->second();
      }
    }
  }
  return true;
}

void LOOP::RunFor(NANOSECONDS time) {
  Run(CLOCK::now() + time, [] { return false; });
}

}  // namespace bench
