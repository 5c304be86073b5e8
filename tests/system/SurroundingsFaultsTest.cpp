#include "tests/system/SystemFaults.h"

#include <chrono>
#include <cstdlib>
#include <vector>

/// Programs that are missing, streams that are closed, an odd locale.

namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

TEST_F(SystemFaults, WithoutLsOrGrepNoAdapterIsFoundAndNothingSpins) {
  config.speedPercent = "50";
  const std::string path = support::PAUSES::Path();
  const std::string sleepAlone = path.substr(0, path.find(':'));
  const std::string sleepAndLs = path.substr(0, path.find(':', sleepAlone.size() + 1));
  Plug(0);
  for (const std::string& programs : {sleepAlone, sleepAndLs}) {
    SCOPED_TRACE(programs);
    fs::remove(log.Path());
    pauses.SetLength(2, milliseconds(150));
    const int before = pauses.CountBegun(2);
    Start(WithPath(programs));
    Reconnect(PART::kCae);
    ASSERT_TRUE(WaitForLines(kNoDevice, 2));
    Synchronise(*cae);
    const int searches = CountLines(kNoDevice);
    EXPECT_LE(searches, pauses.CountBegun(2) - before + 1);  // which is asked later
    Stop(SIGTERM);
  }
  expectedOutput.reset();  // the shell misses its programs
}

TEST_F(SystemFaults, WhereNoChildCanBeMadeThePausesAreMadeAllTheSame) {
  if (support::kEmulated) {
    GTEST_SKIP() << "the emulator lets no program filter its calls";
  }
  config.speedPercent = "50";
  support::START start;
  start.refuseSpawn = true;
  const auto begin = steady_clock::now();
  Start(start);
  Reconnect(PART::kCae);
  EXPECT_GE(steady_clock::now() - begin, milliseconds(3000));
  Synchronise(*cae);
  EXPECT_EQ(pauses.Begun(), std::vector<int>{});
  const int searches = CountLines(kNoDevice);
  const auto passed = steady_clock::now() - begin;
  EXPECT_LE(searches, passed / milliseconds(2000) + 1);
  EXPECT_GE(searches, 1);
}

TEST_F(SystemFaults, ClosedStandardStreamsAreNeverAClientsConnection) {
  support::START start;
  start.closedStreams = true;
  StartForFaults(start);
  for (const int stream : {0, 1, 2}) {
    EXPECT_EQ(support::OpenDescriptors(Pid()).at(stream), "/dev/null");
  }
  pauses.SetLength(2, milliseconds(150));
  BeginFault({.touched = {PART::kBus, PART::kIo}});
  Unplug();
  io->Send("a5b0d00\n");
  ASSERT_TRUE(WaitForLines(kNoDevice, 2));
  ExpectService();
  ExchangeIoClient();
  Plug(1);
  EndFault();
}

TEST_F(SystemFaults, AnOddLocaleAndTimeZoneChangeNothing) {
  // Where i has no dot in capitals and numbers have commas, made here: few machines have it.
  ASSERT_EQ(std::system(("localedef -i tr_TR -f UTF-8 " + Folder() + "/tr_TR.UTF-8").c_str()), 0)
      << "are Debian's locales installed?";
  support::START start;
  start.environment["LOCPATH"] = Folder();
  start.environment["LC_ALL"] = "tr_TR.UTF-8";
  start.environment["LANG"] = "no such locale";
  start.environment["TZ"] = ":/dev/null";
  StartForFaults(start);
  BeginFault({.touched = {PART::kIo}});
  EXPECT_TRUE(Answers(*cae, "SPEED=50", {"CIA: SPEED IS SET to 50%"}));
  io->Send("a5b1dIi\n");  // no digits
  EXPECT_TRUE(mon->Receives("a5b1dIi\n\r"));
  ExpectService();
  ExchangeIoClient();
  EndFault();
}

}  // namespace
