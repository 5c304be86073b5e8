#include "thread/Pauses.h"

#include "thread/Pause.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <cstdio>

namespace vorn {

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using TIME = PAUSES::CLOCK::time_point;
using LENGTH = PAUSES::CLOCK::duration;

/// The framework's own pause between two passes; it counts into the loop's delay.
constexpr nanoseconds kIdleTime{100};
/// What is left of a delay then is shorter than going to sleep and coming back.
constexpr microseconds kTooShortToSleep{2};
/// They come to a loop that is always busy so often: where a wait finds something at once it lets
/// none in.
constexpr milliseconds kBetweenSignals{1};
/// A loop without a bell looks by itself so often.
constexpr milliseconds kLookWithoutBell{5};

timespec TimeSpec(LENGTH length) {
  const auto whole = std::chrono::duration_cast<std::chrono::seconds>(length);
  timespec time{};
  time.tv_sec = static_cast<decltype(time.tv_sec)>(whole.count());
  time.tv_nsec = static_cast<decltype(time.tv_nsec)>(nanoseconds(length - whole).count());
  return time;
}

/// Waits at most so long for one of the descriptors, while this thread blocks just what `mask` has;
/// null: what it does anyway.
template <std::size_t COUNT>
void Poll(std::array<pollfd, COUNT>& descriptors, LENGTH longest, const sigset_t* mask) {
  const timespec limit = TimeSpec(std::max(longest, LENGTH::zero()));
  if (ppoll(descriptors.data(), COUNT, longest == LENGTH::max() ? nullptr : &limit, mask) < 0) {
    for (pollfd& descriptor : descriptors) {
      descriptor.revents = 0;  // not told by a call that failed
    }
  }
}

}  // namespace

SYSTEM_PAUSES::SYSTEM_PAUSES() {
  pthread_sigmask(SIG_BLOCK, nullptr, &m_letIn);
  sigdelset(&m_letIn, SIGINT);
  sigdelset(&m_letIn, SIGTERM);
}

void SYSTEM_PAUSES::Rest(REST& rest) {
  const TIME begin = Now();
  if (rest.takesSignals && begin >= m_nextLetIn) {
    std::array<pollfd, 0> nothing{};
    Poll(nothing, LENGTH::zero(), &m_letIn);
    m_nextLetIn = begin + kBetweenSignals;
  }
  AwaitWork(rest);
  KeepPace(rest, begin);
  rest.bell.Disarm();
}

void SYSTEM_PAUSES::AwaitWork(REST& rest) {
  for (;;) {
    rest.bell.Arm(BELL::kResting);
    if (rest.isOver() || rest.hasWork()) {
      return;
    }
    const REST::SOURCE source = rest.source ? rest.source() : REST::SOURCE{};
    const LENGTH left =
        source.latest == TIME::max() ? LENGTH::max() : LENGTH(source.latest - Now());
    if (left <= LENGTH::zero() || Await(rest, source, left)) {
      return;
    }
  }
}

/// Work that has come later than the delay is long waits for nothing.
void SYSTEM_PAUSES::KeepPace(REST& rest, TIME begin) {
  for (;;) {
    rest.bell.Arm(BELL::kPacing);
    const LENGTH delay = microseconds(std::max(rest.delayUs(), 0)) + kIdleTime;
    const LENGTH left = begin + delay - Now();
    if (rest.isOver() || left <= LENGTH::zero()) {
      return;
    }
    if (left > kTooShortToSleep) {
      Await(rest, {}, left);
    }
  }
}

/// True where the source is ready.
bool SYSTEM_PAUSES::Await(REST& rest, const REST::SOURCE& source, LENGTH longest) const {
  const int bell = rest.bell.Descriptor();
  std::array<pollfd, 2> descriptors = {{{bell, POLLIN, 0}, {source.descriptor, source.events, 0}}};
  Poll(descriptors, bell < 0 ? std::min<LENGTH>(longest, kLookWithoutBell) : longest,
       rest.takesSignals ? &m_letIn : nullptr);
  if (descriptors[0].revents != 0) {
    rest.bell.Clear();
  }
  return descriptors[1].revents != 0;
}

void SYSTEM_PAUSES::DelayUs(std::int32_t delayUs) {
  PauseUs(delayUs);
}

void SYSTEM_PAUSES::Seconds(int seconds) {
  sleepsec(seconds);
}

void SYSTEM_PAUSES::SecondsUnless(int seconds, const std::function<bool()>& isOver) {
  if (isOver()) {
    return;
  }
  const TIME end = Now() + std::chrono::seconds(seconds);
  FILE* const command = StartSleepCommand(seconds);
  std::array<pollfd, 1> ended = {{{command == nullptr ? -1 : fileno(command), 0, 0}}};
  while (command != nullptr && ended[0].revents == 0) {
    Poll(ended, LENGTH::max(), &m_letIn);
    if (isOver()) {
      // cppcheck-suppress resourceLeak ; to close it is to wait; the command ends by itself
      return;
    }
  }
  if (command != nullptr && pclose(command) == 0) {
    return;
  }
  std::array<pollfd, 0> nothing{};
  while (!isOver() && Now() < end) {
    Poll(nothing, end - Now(), &m_letIn);
  }
}

}  // namespace vorn
