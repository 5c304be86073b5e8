#include "tests/support/Wait.h"
#include "tests/support/unit/StubPauses.h"
#include "thread/Pauses.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <thread>

namespace vorn {

namespace {

using std::chrono::hours;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using CLOCK = PAUSES::CLOCK;

constexpr std::int32_t kAnHourUs = 2'000'000'000;  // and more than half of one

/// One loop's rest by the pauses of the machine, and what the test says of its work.
class Rest : public testing::Test {
 protected:
  Rest() {
    m_rest.delayUs = [this] { return m_delayUs.load(); };
    m_rest.isOver = [this] { return m_isOver.load(); };
    m_rest.hasWork = [this] {
      ++m_looks;
      return m_hasWork.load();
    };
  }

  /// Rests on a thread of its own.
  std::thread RestAside() {
    return std::thread([this] {
      m_pauses.Rest(m_rest);
      m_isBack = true;
    });
  }
  bool HasLookedOnce() {
    return support::WaitUntil([this] { return m_looks > 0; });
  }

  SYSTEM_PAUSES m_pauses;
  std::atomic<std::int32_t> m_delayUs{0};
  std::atomic<bool> m_isOver{false};
  std::atomic<bool> m_hasWork{false};
  std::atomic<int> m_looks{0};
  std::atomic<bool> m_isBack{false};
  REST m_rest;
};

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): for a signal's handler
std::atomic<int> interruptions{0};

/// SIGINT is blocked on this thread, and counted where it comes.
class INTERRUPTIONS {
 public:
  INTERRUPTIONS() : m_before(std::signal(SIGINT, [](int) { ++interruptions; })) {
    interruptions = 0;
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGINT);
    pthread_sigmask(SIG_BLOCK, &blocked, &m_mask);
  }
  ~INTERRUPTIONS() {
    pthread_sigmask(SIG_SETMASK, &m_mask, nullptr);
    std::signal(SIGINT, m_before);
  }
  INTERRUPTIONS(const INTERRUPTIONS&) = delete;
  INTERRUPTIONS& operator=(const INTERRUPTIONS&) = delete;

 private:
  void (*m_before)(int);
  sigset_t m_mask{};
};

}  // namespace

TEST_F(Rest, LastsForItsDelayAlsoWhereThereIsWork) {
  m_hasWork = true;
  for (const std::int32_t delayUs : {1, 50, 5000}) {
    m_delayUs = delayUs;
    const auto begin = CLOCK::now();
    m_pauses.Rest(m_rest);
    EXPECT_GE(CLOCK::now() - begin, microseconds(delayUs));
  }
  for (const std::int32_t delayUs : {0, -1, -2'000'000'000}) {
    m_delayUs = delayUs;
    m_pauses.Rest(m_rest);  // none
  }
}

TEST_F(Rest, LooksForWorkOnceWhereThereIsSome) {
  m_hasWork = true;
  m_delayUs = 1000;
  m_pauses.Rest(m_rest);
  EXPECT_EQ(m_looks, 1);
}

TEST_F(Rest, IsEndedByARingBehindWork) {
  std::thread aside = RestAside();
  EXPECT_TRUE(HasLookedOnce());
  m_hasWork = true;
  m_rest.bell.Ring();
  aside.join();
}

TEST_F(Rest, GoesOnBehindARingWithoutWork) {
  std::thread aside = RestAside();
  EXPECT_TRUE(HasLookedOnce());
  m_rest.bell.Ring();
  EXPECT_TRUE(support::WaitUntil([this] { return m_looks > 1; }));
  EXPECT_FALSE(m_isBack);
  m_hasWork = true;
  m_rest.bell.RingThrough();
  aside.join();
}

TEST_F(Rest, LooksNoMoreThanTheBellRings) {
  std::thread aside = RestAside();
  EXPECT_TRUE(HasLookedOnce());
  EXPECT_FALSE(support::WaitUntil([this] { return m_looks > 1; }, support::kSilence));
  m_isOver = true;
  m_rest.bell.RingThrough();
  aside.join();
  EXPECT_EQ(m_looks, 1);
}

TEST_F(Rest, IsNotCutByARingInItsDelay) {
  m_delayUs = kAnHourUs;
  m_hasWork = true;
  std::thread aside = RestAside();
  EXPECT_TRUE(HasLookedOnce());
  EXPECT_FALSE(support::WaitUntil([this] { return m_isBack.load(); }, support::kSilence));
  m_rest.bell.Ring();
  EXPECT_FALSE(support::WaitUntil([this] { return m_isBack.load(); }, support::kSilence));
  m_isOver = true;
  m_rest.bell.RingThrough();
  aside.join();
  EXPECT_EQ(m_looks, 1);
}

TEST_F(Rest, TakesAnotherDelayAtOnce) {
  m_delayUs = kAnHourUs;
  m_hasWork = true;
  std::thread aside = RestAside();
  EXPECT_FALSE(support::WaitUntil([this] { return m_isBack.load(); }, support::kSilence));
  m_delayUs = 1;
  m_rest.bell.RingThrough();
  aside.join();
  EXPECT_EQ(m_looks, 1);
}

TEST_F(Rest, IsEndedByItsSource) {
  std::array<int, 2> ends{};
  ASSERT_EQ(pipe(ends.data()), 0);
  const UNIQUE_FD reader(ends[0]);
  const UNIQUE_FD writer(ends[1]);
  m_rest.source = [&] { return REST::SOURCE{.descriptor = reader.Get(), .events = POLLIN}; };
  std::thread aside = RestAside();
  EXPECT_TRUE(HasLookedOnce());
  EXPECT_EQ(write(writer.Get(), "x", 1), 1);
  aside.join();
}

TEST_F(Rest, IsEndedAtTheLatestOfItsSource) {
  const auto latest = CLOCK::now() + milliseconds(20);
  m_rest.source = [&] { return REST::SOURCE{.latest = latest}; };
  m_pauses.Rest(m_rest);
  EXPECT_GE(CLOCK::now(), latest);
  m_pauses.Rest(m_rest);  // which is over
}

TEST_F(Rest, LooksByItselfWhereTheSystemRefusesABell) {
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit none = {0, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  REST mute;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_EQ(mute.bell.Descriptor(), -1);
  mute.delayUs = m_rest.delayUs;
  mute.isOver = m_rest.isOver;
  mute.hasWork = m_rest.hasWork;
  std::thread aside([&] { m_pauses.Rest(mute); });
  EXPECT_TRUE(HasLookedOnce());
  m_hasWork = true;
  mute.bell.Ring();
  aside.join();
}

TEST_F(Rest, LetsSignalsInWhileItWaits) {
  const INTERRUPTIONS counted;
  SYSTEM_PAUSES pauses;  // of the thread as it is now
  m_rest.takesSignals = true;
  m_rest.isOver = [] { return interruptions > 0; };
  std::thread sender([this, self = pthread_self()] {
    EXPECT_TRUE(HasLookedOnce());
    pthread_kill(self, SIGINT);
  });
  pauses.Rest(m_rest);
  sender.join();
  EXPECT_EQ(interruptions, 1);
}

TEST_F(Rest, LetsSignalsInWhereThereIsAlwaysWork) {
  const INTERRUPTIONS counted;
  SYSTEM_PAUSES pauses;
  m_rest.takesSignals = true;
  m_hasWork = true;
  pthread_kill(pthread_self(), SIGINT);
  EXPECT_EQ(interruptions, 0);
  pauses.Rest(m_rest);
  EXPECT_EQ(interruptions, 1);
}

TEST_F(Rest, LetsSignalsInDuringItsDelay) {
  const INTERRUPTIONS counted;
  SYSTEM_PAUSES pauses;
  m_rest.takesSignals = true;
  m_hasWork = true;
  m_delayUs = kAnHourUs;
  std::atomic<int> questions{0};
  m_rest.isOver = [&questions] {
    ++questions;
    return interruptions > 0;
  };
  std::thread sender([&questions, self = pthread_self()] {
    EXPECT_TRUE(
        support::WaitUntil([&questions] { return questions >= 2; }));  // the second for the delay
    pthread_kill(self, SIGINT);
  });
  pauses.Rest(m_rest);
  sender.join();
}

TEST(SecondsUnless, IsAPauseLikeTheOthers) {
  unit::STUB_PAUSES stub;
  stub->SetLength(2, milliseconds(1));
  SYSTEM_PAUSES pauses;
  pauses.SecondsUnless(2, [] { return false; });
  EXPECT_EQ(stub->Ended(), std::vector<int>{2});
}

TEST(SecondsUnless, IsCutShortByASignalThatEndsIt) {
  unit::STUB_PAUSES stub;
  stub->Hold(1);
  const INTERRUPTIONS counted;
  SYSTEM_PAUSES pauses;
  std::thread sender([&, self = pthread_self()] {
    EXPECT_TRUE(stub->WaitUntilBegun(1));
    pthread_kill(self, SIGINT);
  });
  pauses.SecondsUnless(1, [] { return interruptions > 0; });
  sender.join();
  EXPECT_EQ(stub->Ended(), std::vector<int>{});
  stub->Release(1);
  EXPECT_TRUE(support::WaitUntil([&] { return stub->Ended() == std::vector<int>{1}; }));
}

TEST(SecondsUnless, IsNotBegunForALoopThatIsOver) {
  unit::STUB_PAUSES stub;
  stub->Hold(1);
  SYSTEM_PAUSES pauses;
  pauses.SecondsUnless(1, [] { return true; });
  EXPECT_EQ(stub->Begun(), std::vector<int>{});
}

TEST(SecondsUnless, WaitsByItselfWhereTheCommandFails) {
  unit::STUB_PAUSES stub;
  const unit::VARIABLE path("PATH", "");
  SYSTEM_PAUSES pauses;
  const auto begin = CLOCK::now();
  pauses.SecondsUnless(1, [] { return false; });
  EXPECT_GE(CLOCK::now() - begin, std::chrono::seconds(1));
}

}  // namespace vorn
