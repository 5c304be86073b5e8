#include "tests/support/Text.h"
#include "tests/system/SystemFaults.h"

#include <sys/wait.h>

#include <chrono>
#include <optional>

/// Descriptors that are not to be had, or many that are in use.

namespace {

using std::chrono::milliseconds;

TEST_F(SystemFaults, EveryDescriptorLimitAtTheStartIsAnEndOrADaemonThatCanBeStopped) {
  if (support::kInstrumented) {
    GTEST_SKIP() << "a sanitizer's end and an emulator's start need descriptors";
  }
  config.speedPercent = "50";
  support::WriteFile(support::kConfigPath, config.Text());
  pauses.AllowSearch();
  // Below 4 the program itself cannot be loaded.
  for (unsigned int limit = 4; limit <= 16; ++limit) {
    SCOPED_TRACE(limit);
    support::START start;
    start.descriptorLimit = limit;
    start.environment["VORN_TEST_PAUSES"] = pauses.Folder();
    start.environment["PATH"] = support::PAUSES::Path();
    const int status = daemon.Start(start);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    ASSERT_TRUE(support::WaitUntil(
        [&] { return !daemon.Running() || support::ThreadCount(Pid()) == kThreads; }));
    if (daemon.Running()) {
      daemon.Signal(SIGTERM);
    }
    const std::optional<int> end = daemon.WaitForEnd();
    ASSERT_TRUE(end);
    ASSERT_TRUE(WIFEXITED(*end)) << "signal " << WTERMSIG(*end);
    EXPECT_LE(WEXITSTATUS(*end), 1);  // 1: no pid file
  }
  isEndExpected = false;
  expectedOutput.reset();  // the pauses' shells complain, and "Couldn't open pid file."
}

TEST_F(SystemFaults, WithoutADescriptorToBeHadClientsStayServedAndLaterOnesAreWhenThereIsOne) {
  config.speedPercent = "50";
  StartForFaults();
  rlimit usual{};
  ASSERT_EQ(prlimit(Pid(), RLIMIT_NOFILE, nullptr, &usual), 0);
  BeginFault(
      {.touched = {PART::kIo, PART::kMon},
       .lines = {"[ERR] socket accept error on MON interface", "[ERR] couldn't open socket for"}});
  const int pausesBefore = pauses.CountBegun(3);
  pauses.Hold(3);
  mon->Close();
  ASSERT_TRUE(pauses.WaitUntilBegun(3, pausesBefore + 1));
  SetDescriptorLimit(3);  // no number is free
  pauses.Release(3);
  // MON's accept fails, and IO finds no socket to listen on.
  ASSERT_TRUE(support::WaitUntil([&] { return TCP_CLIENT::IsRefused(config.mon.port); }));
  io->Close();
  ASSERT_TRUE(support::WaitUntil([&] { return TCP_CLIENT::IsRefused(config.io.port); }));
  ExpectService();
  SetDescriptorLimit(usual.rlim_cur);
  EndFault();
}

TEST_F(SystemFaults, AThousandOpenDescriptorsAtTheStartHarmNothing) {
  support::START start;
  start.descriptorsInUse = 1000;
  StartForFaults(start);
  BeginFault({.touched = {PART::kIo}});
  io->Close();
  ExpectService();
  Reconnect(PART::kIo);
  EndFault();
}

TEST_F(SystemFaults, AnAdapterThatComesBackWhileNoDescriptorIsToBeHadIsFoundWhenThereIsOne) {
  config.speedPercent = "50";
  pauses.SetLength(2, milliseconds(150));
  StartForFaults();
  rlimit usual{};
  ASSERT_EQ(prlimit(Pid(), RLIMIT_NOFILE, nullptr, &usual), 0);
  const std::string found = "[INF] hardware found on /dev/ttyUSB";
  // The log wants one for a moment, the listing two, and the adapter keeps one.
  for (unsigned int free = 0; free <= 2; ++free) {
    SCOPED_TRACE(free);
    const rlim_t limit = LimitThatLeaves(free);
    BeginFault({.touched = {PART::kBus}, .mostLines = 100});
    const int foundBefore = CountLines(found);
    pauses.Hold(2);
    const int pausesBefore = pauses.CountBegun(2);
    Unplug();
    io->Send("a5b0d00\n");  // notices
    ASSERT_TRUE(pauses.WaitUntilBegun(2, pausesBefore + 1));
    SetDescriptorLimit(limit);
    Plug(static_cast<int>(free));
    const std::uint64_t openings = adapter.Counters().openings;
    const int missed = CountLines(kNoDevice);
    pauses.Release(2);
    ExpectService();
    if (free == 1) {
      EXPECT_TRUE(WaitForLines(kNoDevice, missed + 2));
    }
    if (free < 2) {
      EXPECT_EQ(adapter.Counters().openings, openings);
      SetDescriptorLimit(usual.rlim_cur);
    }
    EXPECT_TRUE(WaitForLines(found, foundBefore + 1));
    SetDescriptorLimit(usual.rlim_cur);
    EndFault();
  }
}

}  // namespace
