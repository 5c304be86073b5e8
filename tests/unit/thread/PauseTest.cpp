#include "tests/support/ProcessInfo.h"
#include "tests/support/Wait.h"
#include "tests/support/unit/Folder.h"
#include "tests/support/unit/StubPauses.h"
#include "thread/Pause.h"
#include "thread/Pauses.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <limits>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace vorn {

namespace {

using CLOCK = std::chrono::steady_clock;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

template <class PAUSE>
CLOCK::duration TimeOf(PAUSE pause) {
  const auto begin = CLOCK::now();
  pause();
  return CLOCK::now() - begin;
}

/// The pause is not made: sooner or later it takes less than the shortest one here, which would be
/// of a second. A busy machine may take its time for nothing, but not each time.
template <class PAUSE>
bool ReturnsAtOnce(PAUSE pause) {
  return support::WaitUntil([&] { return TimeOf(pause) < milliseconds(900); });
}

}  // namespace

TEST(Sleep, PausesInUnitsOf100Nanoseconds) {
  EXPECT_GE(TimeOf([] { Sleep(50000); }), milliseconds(5));
}

TEST(Sleep, OfNothingAndOfTenMillionUnitsAndMoreReturnsAtOnce) {
  // Times 100 the last two are 999999996 and 4294967200 nanoseconds in 32 bits.
  for (const unsigned int units :
       {0U, 10'000'000U, 52'949'673U, std::numeric_limits<unsigned int>::max()}) {
    EXPECT_TRUE(ReturnsAtOnce([=] { Sleep(units); })) << units;
  }
}

TEST(PauseUs, PausesMicroseconds) {
  EXPECT_GE(TimeOf([] { PauseUs(5000); }), milliseconds(5));
}

TEST(PauseUs, PausesMoreThanASecond) {
  EXPECT_GE(TimeOf([] { PauseUs(1'000'001); }), microseconds(1'000'001));
}

TEST(PauseUs, OfZeroOrANegativeDelayReturnsAtOnce) {
  for (const std::int32_t delayUs : {0, -1, -49, std::numeric_limits<std::int32_t>::min()}) {
    EXPECT_TRUE(ReturnsAtOnce([=] { PauseUs(delayUs); })) << delayUs;
  }
}

TEST(Sleepsec, RunsTheShellCommandSleepWithTheSeconds) {
  unit::STUB_PAUSES pauses;
  sleepsec(3);
  sleepsec(2);
  EXPECT_EQ(pauses->Begun(), (std::vector<int>{3, 2}));
}

TEST(Sleepsec, WaitsForItsChild) {
  unit::STUB_PAUSES pauses;
  pauses->Hold(3);
  std::thread sleeper([] { sleepsec(3); });
  EXPECT_TRUE(pauses->WaitUntilBegun(3));
  EXPECT_TRUE(pauses->Ended().empty());
  pauses->Release(3);
  sleeper.join();
  EXPECT_EQ(pauses->Ended(), (std::vector<int>{3}));
}

TEST(Sleepsec, PausesWholeSecondsByTheSystemsOwnCommand) {
  EXPECT_GE(TimeOf([] { sleepsec(1); }), seconds(1));
}

TEST(Sleepsec, PausesWhenNoChildCanBeStarted) {
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit noPipe = {0, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &noPipe), 0);
  EXPECT_GE(TimeOf([] { sleepsec(1); }), seconds(1));
  EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
}

TEST(Sleepsec, WaitsTheRestWhenTheChildFailsAsOneThatIsNotThereDoes) {
  const unit::FOLDER folder;
  unit::WriteFile(folder.File("sleep"), "#!/bin/sh\nexit 1\n");
  const unit::VARIABLE path("PATH", folder.Path());
  EXPECT_GE(TimeOf([] { sleepsec(1); }), seconds(1));
  ASSERT_EQ(chmod(folder.File("sleep").c_str(), 0755), 0);
  EXPECT_GE(TimeOf([] { sleepsec(1); }), seconds(1));
}

TEST(Sleepsec, WaitsTheRestWhenChildrenAreNotReported) {
  // As a parent may have set it: the child's end cannot be waited for then.
  const auto before = std::signal(SIGCHLD, SIG_IGN);
  EXPECT_GE(TimeOf([] { sleepsec(1); }), seconds(1));
  std::signal(SIGCHLD, before);
}

TEST(Sleepsec, OfNothingOrLessReturns) {
  sleepsec(0);
  sleepsec(-1);  // as an unsigned number 136 years
}

TEST(Sleepsec, HandsNoPipeOfOnePauseToTheChildOfAnother) {
  // What any child of this process gets, whatever the test does.
  std::set<std::string> inherited;
  for (const auto& [number, target] : support::OpenDescriptors(getpid())) {
    const int flags = fcntl(number, F_GETFD);
    if (flags != -1 && (flags & FD_CLOEXEC) == 0) {
      inherited.insert(std::to_string(number));
    }
  }
  inherited.insert({"0", "1", "2"});

  unit::STUB_PAUSES pauses;
  pauses->Hold(3);
  std::thread first([] { sleepsec(3); });
  EXPECT_TRUE(pauses->WaitUntilBegun(3));
  std::thread second([] { sleepsec(3); });
  EXPECT_TRUE(pauses->WaitUntilBegun(3, 2));
  pauses->Release(3);
  first.join();
  second.join();

  const std::vector<std::string> open = pauses->ChildDescriptors();
  EXPECT_FALSE(open.empty());
  for (const std::string& descriptor : open) {
    // The test reads the stand-in's record meanwhile, and that stream a child may get.
    if (descriptor.find("=pipe:") == std::string::npos) {
      continue;
    }
    EXPECT_EQ(inherited.count(descriptor.substr(0, descriptor.find('='))), 1U) << descriptor;
  }
}

TEST(SystemPauses, AreThoseOfTheMachineByItsMonotonicClock) {
  unit::STUB_PAUSES stub;
  SYSTEM_PAUSES pauses;
  const auto begin = pauses.Now();
  EXPECT_LE(begin, CLOCK::now());
  pauses.DelayUs(5000);
  EXPECT_GE(pauses.Now() - begin, milliseconds(5));
  pauses.DelayUs(-1);
  pauses.Seconds(3);
  EXPECT_EQ(stub->Begun(), std::vector<int>{3});
}

}  // namespace vorn
