#include "tests/support/ListeningPorts.h"
#include "tests/support/ProcessInfo.h"
#include "tests/support/SystemLog.h"
#include "tests/support/Text.h"
#include "tests/system/SystemTest.h"

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <filesystem>

namespace {

namespace fs = std::filesystem;

class Startup : public SYSTEM_TEST {};

TEST_F(Startup, TheDaemonLeadsASessionOfItsOwnHasFiveThreadsAndIgnoresItsArguments) {
  support::START start;
  start.arguments = {"--help", "-n", "x"};
  Start(start);
  ASSERT_TRUE(log.WaitForLine(kNoDevice));
  EXPECT_EQ(getsid(Pid()), Pid());
  EXPECT_EQ(getpgid(Pid()), Pid());
  EXPECT_TRUE(support::WaitUntil([&] { return support::ThreadCount(Pid()) == kThreads; }))
      << support::ThreadCount(Pid());
}

TEST_F(Startup, AMissingConfigurationLeavesOneSystemLogLineAndStatusZero) {
  support::SYSTEM_LOG systemLog;
  support::START start;
  start.workingFolder = Folder();
  EXPECT_EQ(daemon.Start(start), 0);
  ExpectEnd();
  const std::string message = systemLog.Receive();
  // Facility user (1), priority notice (5): 1 * 8 + 5; then the time, then the program's name.
  EXPECT_TRUE(message.starts_with("<13>")) << message;
  EXPECT_TRUE(message.ends_with(" vorn: Unable to start by user " + std::to_string(getuid()) +
                                ", because unable to load config, or unable to parse XML file!"))
      << message;
  EXPECT_EQ(systemLog.Receive(support::milliseconds(0)), "");  // it has ended
  EXPECT_FALSE(fs::exists(log.Path()));
}

TEST_F(Startup, APortBelow1025EndsItWithStatusZero) {
  config.io.port = 1024;
  Start();
  ExpectEnd();
  EXPECT_EQ(log.AllLines(),
            (std::vector<std::string>{"[INF] vorn is started",
                                      "[ERR] IO interface port number is less than 1025",
                                      "[INF] vorn is stopped with error"}));
}

TEST_F(Startup, WorkingFolderFileModeMaskAndStandardStreamsStay) {
  support::START start;
  start.workingFolder = Folder();
  start.umask = 027;
  Start(start);
  ASSERT_TRUE(log.WaitForLine("[INF] vorn is started"));
  EXPECT_EQ(fs::read_symlink("/proc/" + std::to_string(Pid()) + "/cwd"), Folder());
  EXPECT_EQ(support::StatusField(Pid(), "Umask"), "0027");
  const auto descriptors = support::OpenDescriptors(Pid());
  EXPECT_EQ(descriptors.at(0), "/dev/null");
  EXPECT_EQ(descriptors.at(1), Folder() + "/output");
  EXPECT_EQ(descriptors.at(2), Folder() + "/output");
  // A file's permissions on creation are those of the mask.
  EXPECT_EQ(fs::status(log.Path()).permissions(), fs::perms(0640));
}

TEST_F(Startup, ThePidFileHoldsOnlyTheDecimalPidAndStaysAfterTheEnd) {
  // What an earlier run left is overwritten, however long it was.
  support::WriteFile(support::kPidPath, "12345678901234567890\nsecond line\n");
  Start();
  ASSERT_TRUE(log.WaitForLine("[INF] vorn is started"));
  EXPECT_EQ(support::ReadFile(support::kPidPath), std::to_string(Pid()));
  Stop(SIGTERM);
  EXPECT_EQ(support::ReadFile(support::kPidPath), std::to_string(Pid()));
}

TEST_F(Startup, APidFileThatCannotBeOpenedEndsTheDaemonWithStatus1) {
  fs::remove_all("/run/vorn");
  support::WriteFile(support::kConfigPath, config.Text());
  struct OUTPUT {
    std::optional<unsigned int> fileSizeLimit;
    std::string text;
  };
  // Where the words on it find no room, it ends the same.
  for (const OUTPUT& output : {OUTPUT{0, ""}, OUTPUT{{}, "Couldn't open pid file.\n"}}) {
    support::START start;
    start.fileSizeLimit = output.fileSizeLimit;
    start.environment["TMPDIR"] = "/nowhere";  // a sanitizer's runtime would write a file there
    const int status = daemon.Start(start);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "of the caller's process";
    const std::optional<int> end = daemon.WaitForEnd();
    ASSERT_TRUE(end);
    EXPECT_TRUE(WIFEXITED(*end)) << "ended by signal " << WTERMSIG(*end);
    EXPECT_EQ(WEXITSTATUS(*end), 1);
    EXPECT_EQ(daemon.Output(), output.text);
    EXPECT_FALSE(fs::exists(log.Path()));
  }
  expectedOutput.reset();
  isEndExpected = false;
  fs::create_directory("/run/vorn");
}

TEST_F(Startup, ARefusedForkEndsTheProgramWithStatus1) {
  if (support::kEmulated) {
    GTEST_SKIP() << "the emulator lets no program filter its calls";
  }
  support::WriteFile(support::kConfigPath, config.Text());
  support::START start;
  start.refuseFork = true;
  const int status = daemon.Start(start);
  ASSERT_TRUE(WIFEXITED(status)) << WTERMSIG(status);
  EXPECT_EQ(WEXITSTATUS(status), 1);
  EXPECT_EQ(daemon.Pid(), 0);
  EXPECT_FALSE(fs::exists(support::kPidPath));
  EXPECT_FALSE(fs::exists(log.Path()));
}

TEST_F(Startup, TheWholeLogOfAnUneventfulRun) {
  config.speedPercent = "90";
  pauses.Hold(2);
  Start();
  ASSERT_TRUE(log.WaitForLine(kNoDevice));
  for (const char* name : {"CAE", "IO", "MON"}) {
    ASSERT_TRUE(log.WaitForLine(Waiting(name)));
  }
  std::vector<int> ports{config.cae.port, config.io.port, config.mon.port};
  std::sort(ports.begin(), ports.end());
  EXPECT_EQ(support::ListeningPorts(Pid()), ports);
  Stop(SIGTERM);
  std::vector<std::string> lines = log.AllLines();
  for (const char* name : {"CAE", "IO", "MON"}) {  // whenever their threads come to it
    EXPECT_EQ(std::erase(lines, Waiting(name)), 1U) << name;
  }
  EXPECT_EQ(lines,
            (std::vector<std::string>{
                "[INF] vorn is started", "[INF] Initparam Autodiscover: TRUE",
                "[INF] Initparam Enablepoll: FALSE", "[INF] Initparam Speed (ThreadDelay): 505",
                Listening(config.cae), Listening(config.io), Listening(config.mon), kNoDevice,
                "[INF] signal 15 on CAE interface", "[INF] signal 15 on IO interface",
                "[INF] signal 15 on MON interface", "[INF] signal 15 on serial interface",
                "[INF] vorn is stopped by SIGTERM or SIGINT"}));
}

TEST_F(Startup, LogLinesBearTheLocalTimeOfTheMoment) {
  support::START start;
  // Fourteen and a half hours east of what most machines have.
  start.environment["TZ"] = "TEST-14:30";
  const std::time_t begin = std::time(nullptr);
  Start(start);
  ASSERT_TRUE(log.WaitForLine("[INF] vorn is started"));
  const std::time_t end = std::time(nullptr);
  const auto expected = [](std::time_t time) {
    const std::time_t east = time + 14 * 3600 + 30 * 60;
    std::tm fields{};
    gmtime_r(&east, &fields);
    char text[40];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &fields);
    return std::string(text);
  };
  const std::string line = support::Lines(log.Text()).at(0);
  EXPECT_GE(line.substr(0, 19), expected(begin));
  EXPECT_LE(line.substr(0, 19), expected(end));
  EXPECT_EQ(line.substr(19), " [INF] vorn is started");
}

TEST_F(Startup, WithoutADebuglogElementNothingIsWrittenAndNothingFails) {
  support::START start;
  start.workingFolder = Folder();
  StartWith(support::Document({support::InterfacesElement(
                {support::InterfaceElement(config.cae), support::InterfaceElement(config.io),
                 support::InterfaceElement(config.mon)})}),
            start);
  TCP_CLIENT client = ConnectCae();
  Synchronise(client);
  Stop(SIGTERM);
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(Folder())) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"output", "pauses"}));
}

TEST_F(Startup, StaysSmallInMemory) {
  config.initPollState = "TRUE";
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  TCP_CLIENT mon = ConnectMon();
  if (!support::kInstrumented) {
    EXPECT_LT(support::ResidentKiB(Pid()), 4096);
  }
}

TEST_F(Startup, WhatItsParentBlocksOrIgnoresEndsItAllTheSame) {
  support::START start;
  start.blockedSignals = {SIGINT, SIGTERM};
  start.ignoredSignals = {SIGINT, SIGTERM};
  for (const int signal : {SIGINT, SIGTERM}) {
    SCOPED_TRACE(signal);
    fs::remove(log.Path());
    Start(start);
    ASSERT_TRUE(log.WaitForLine(Listening(config.mon)));
    Stop(signal);
    EXPECT_EQ(log.Count("[INF] vorn is stopped by SIGTERM or SIGINT"), 1);
  }
}

TEST_F(Startup, WaitsForItsChildrenThoughItsParentIgnoresTheEndOfThem) {
  support::START start;
  start.ignoredSignals = {SIGCHLD};
  Start(start);
  TCP_CLIENT client = ConnectCae();
  const std::uint64_t ignored = std::stoull(support::StatusField(Pid(), "SigIgn"), nullptr, 16);
  EXPECT_EQ(ignored & (1ULL << (SIGCHLD - 1)), 0U);
}

TEST_F(Startup, ABrokenPipeEndsNothing) {
  Start();
  TCP_CLIENT client = ConnectCae();
  daemon.Signal(SIGPIPE);
  Synchronise(client);
}

}  // namespace
