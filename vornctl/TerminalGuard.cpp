#include "vornctl/TerminalGuard.h"

#include <signal.h>
#include <sys/eventfd.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <system_error>

namespace ctl {

namespace {

// Those that end the program, and the one that stops it.
constexpr std::array kEnds = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP};
constexpr std::array kNews = {SIGWINCH, SIGCONT};

/// What a signal's handler reaches. Written while no handler is installed; the flags are its words
/// to the program.
struct GUARDED {
  int terminal = -1;
  int bell = -1;
  termios before{};
  std::atomic<bool> resized = false;
  std::atomic<bool> continued = false;
};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal's handler may use no other");

GUARDED guarded;

void Ring() {
  const std::uint64_t one = 1;
  // Full, it is readable all the same.
  [[maybe_unused]] const ssize_t written = write(guarded.bell, &one, sizeof one);
}

void OnSignal(int number);

void SetHandler(int number, void (*handler)(int), int flags) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = flags;
  sigaction(number, &action, nullptr);
}

void Watch(int number) {
  SetHandler(number, OnSignal, SA_RESTART);
}

/// What it does to a program that does not handle it: now, and not at the handler's end.
void Suffer(int number) {
  SetHandler(number, SIG_DFL, 0);
  kill(getpid(), number);
  sigset_t one;
  sigemptyset(&one);
  sigaddset(&one, number);
  pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
}

// Calls only what a signal's handler may.
void OnSignal(int number) {
  const int error = errno;
  if (number == SIGWINCH) {
    guarded.resized = true;
    Ring();
  } else if (number == SIGCONT) {
    guarded.continued = true;
    Ring();
  } else {
    tcsetattr(guarded.terminal, TCSANOW, &guarded.before);
    Suffer(number);
    // Only a stopped program comes here, when it goes on.
    Watch(number);
    guarded.continued = true;
    Ring();
  }
  errno = error;
}

void (*HandlerOf(int number))(int) {
  struct sigaction action {};
  sigaction(number, nullptr, &action);
  return action.sa_handler;
}

template <class NUMBERS>
void WatchThoseWithoutHandler(const NUMBERS& numbers) {
  for (const int number : numbers) {
    if (HandlerOf(number) == SIG_DFL) {
      Watch(number);
    }
  }
}

template <class NUMBERS>
void LeaveThoseWatched(const NUMBERS& numbers) {
  for (const int number : numbers) {
    if (HandlerOf(number) == OnSignal) {
      SetHandler(number, SIG_DFL, 0);
    }
  }
}

}  // namespace

TERMINAL_GUARD::TERMINAL_GUARD(int terminal) : m_bell(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!m_bell || tcgetattr(terminal, &guarded.before) != 0) {
    throw std::system_error(errno, std::generic_category(), "terminal");
  }
  guarded.terminal = terminal;
  guarded.bell = m_bell.Get();
  guarded.resized = false;
  guarded.continued = false;
  WatchThoseWithoutHandler(kEnds);
  WatchThoseWithoutHandler(kNews);
}

TERMINAL_GUARD::~TERMINAL_GUARD() {
  // First the settings: a signal just before, and they are given back twice.
  while (tcsetattr(guarded.terminal, TCSADRAIN, &guarded.before) != 0 && errno == EINTR) {
  }
  LeaveThoseWatched(kEnds);
  LeaveThoseWatched(kNews);
}

TERMINAL_GUARD::NEWS TERMINAL_GUARD::TakeNews() {
  std::uint64_t count = 0;
  // First the bell: what comes in between rings it again.
  [[maybe_unused]] const ssize_t taken = read(m_bell.Get(), &count, sizeof count);
  NEWS news;
  news.resized = guarded.resized.exchange(false);
  news.continued = guarded.continued.exchange(false);
  return news;
}

}  // namespace ctl
