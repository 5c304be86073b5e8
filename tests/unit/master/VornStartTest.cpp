// The central object: start-up lines, the master loop with its four workers, and signals.

#include "tests/unit/master/VornFixture.h"

#include <unistd.h>

#include <algorithm>
#include <csignal>

namespace vorn {

namespace unit {
namespace {

using support::WaitUntil;

// --- start-up -----------------------------------------------------------------------------------

TEST_F(Vorn, LogsItsSettingsWhenTheConfigurationIsGood) {
  config.speedPercent = "50";
  config.initPollState = "TRUE";
  config.autoDiscover = "FALSE";
  EXPECT_TRUE(Make().InitProgramData());
  EXPECT_EQ(Log(), LINES({"[INF] vorn is started", "[INF] Initparam Autodiscover: FALSE",
                          "[INF] Initparam Enablepoll: TRUE",
                          "[INF] Initparam Speed (ThreadDelay): 2525"}));
}

TEST_F(Vorn, LogsTheComputedDelayAlsoWhenItIsNegative) {
  config.speedPercent = "101";
  config.initPollState = "yes";
  config.autoDiscover = "True";
  EXPECT_TRUE(Make().InitProgramData());
  EXPECT_EQ(Log(), LINES({"[INF] vorn is started", "[INF] Initparam Autodiscover: TRUE",
                          "[INF] Initparam Enablepoll: FALSE",
                          "[INF] Initparam Speed (ThreadDelay): -49"}));
}

TEST_F(Vorn, LogsTheErrorAndStopsWhenAPortIsTooLow) {
  config.io.port = 1024;
  EXPECT_FALSE(Make().InitProgramData());
  EXPECT_EQ(Log(),
            LINES({"[INF] vorn is started", "[ERR] IO interface port number is less than 1025",
                   "[INF] vorn is stopped with error"}));
}

TEST_F(Vorn, StopsWithoutALogWhenTheConfigurationCannotBeRead) {
  const std::string path = folder.File("broken.xml");
  WriteFile(path, "<VORNConfig><Debuglog File=\"" + config.logFile + "\"/>");
  for (const std::string& unreadable : {folder.File("no-such-file.xml"), path}) {
    VORN unconfigured(flag, line, pauses, unreadable);
    EXPECT_FALSE(unconfigured.InitProgramData());
    EXPECT_EQ(Log(), LINES());
    EXPECT_EQ(unconfigured.ReadConfig().errorText,
              "Unable to load config, or unable to parse XML file!");
  }
}

TEST_F(Vorn, ReadsTheDaemonsConfigurationUnlessToldOtherwise) {
  EXPECT_STREQ(VORN::kConfigPath, "/etc/vorn/vornconf.xml");
}

TEST_F(Vorn, StartsItsWorkersInTheOrderCaeIoMonAndThenTheBus) {
  config.speedPercent = "90";
  config.autoDiscover = "FALSE";
  Start();
  ASSERT_TRUE(WaitUntil(
      [&] { return Logged("[INF] hardware found on " + line.Path() + " version: 1.07"); }));
  const LINES log = Log();
  const auto at = [&](const std::string& text) {
    return std::find(log.begin(), log.end(), text) - log.begin();
  };
  const auto listening = [&](const support::INTERFACE& interface) {
    return at("[INF] " + interface.name + " interface listening on port " +
              std::to_string(interface.port));
  };
  EXPECT_LT(at("[INF] Initparam Speed (ThreadDelay): 505"), listening(config.cae));
  EXPECT_LT(listening(config.cae), listening(config.io));
  EXPECT_LT(listening(config.io), listening(config.mon));
  EXPECT_LT(listening(config.mon), at("[INF] try to catch hardware on " + line.Path()));
}

TEST_F(Vorn, AMissingInterfaceElementStillGetsAWorker) {
  WriteFile(folder.File("vornconf.xml"),
            support::Document({support::DebuglogElement(config.logFile)}));
  vorn.emplace(flag, line, pauses, folder.File("vornconf.xml"));
  ASSERT_TRUE(vorn->InitProgramData());
  vorn->InitInterfaces();
  const LINES log = Log();
  EXPECT_EQ(std::count(log.begin(), log.end(), "[INF]  interface listening on port 0"), 3);
}

// --- signals ------------------------------------------------------------------------------------

class VornStopped : public Vorn, public testing::WithParamInterface<int> {};

TEST_P(VornStopped, ByItsSignalTellsEachWorkerClosesThePortAndReturns) {
  const std::string number = std::to_string(GetParam());
  Start();
  ASSERT_TRUE(WaitUntil([&] { return line.Openings() > 0; }));
  Stop(GetParam());
  const LINES expected = {"[INF] signal " + number + " on CAE interface",
                          "[INF] signal " + number + " on IO interface",
                          "[INF] signal " + number + " on MON interface",
                          "[INF] signal " + number + " on serial interface",
                          "[INF] vorn is stopped by SIGTERM or SIGINT"};
  LINES found;
  for (const std::string& text : Log()) {
    if (text.find("signal") != std::string::npos || text.find("stopped") != std::string::npos) {
      found.push_back(text);
    }
  }
  EXPECT_EQ(found, expected);
  EXPECT_TRUE(WaitUntil([&] { return line.Openings() == 0; }));
}

INSTANTIATE_TEST_SUITE_P(Signals, VornStopped, testing::Values(SIGINT, SIGTERM));

TEST_F(Vorn, AnyOtherNumberIsReportedInEveryPassAndTheLoopGoesOn) {
  Start();
  TCP_CLIENT cae = ConnectCae();
  flag = SIGUSR1;
  EXPECT_TRUE(WaitUntil([&] {
    const LINES log = Log();
    return std::count(log.begin(), log.end(), "[INF] signal 10 on serial interface") > 2;
  }));
  AskVersion(cae);
  EXPECT_FALSE(Logged("[INF] vorn is stopped by SIGTERM or SIGINT"));
  Stop(SIGTERM);
  EXPECT_TRUE(Logged("[INF] vorn is stopped by SIGTERM or SIGINT"));
}

TEST_F(Vorn, ASignalOfTheProcessReachesTheLoopWhileWorkersRun) {
  pSignalFlag = &flag;
  std::signal(SIGTERM, SIGhandler);
  Start();
  kill(getpid(), SIGTERM);
  loop.join();
  EXPECT_EQ(flag, SIGTERM);
  EXPECT_TRUE(Logged("[INF] vorn is stopped by SIGTERM or SIGINT"));
  std::signal(SIGTERM, SIG_DFL);
}

TEST_F(Vorn, AnyOtherNumberClosesThePortAsWell) {
  Start();
  ASSERT_TRUE(WaitUntil([&] { return line.Openings() > 0; }));
  flag = SIGUSR1;
  EXPECT_TRUE(WaitUntil([&] { return line.Openings() == 0; }));
  EXPECT_FALSE(Logged("[INF] vorn is stopped by SIGTERM or SIGINT"));
}

}  // namespace
}  // namespace unit

}  // namespace vorn
