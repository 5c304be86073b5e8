#include "tests/support/ProcessInfo.h"
#include "tests/support/Text.h"
#include "tests/system/SystemTest.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>

/// The pauses of whole seconds: which are made where, that they are real ones, and what their
/// children inherit.

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

class Pauses : public SYSTEM_TEST {
 protected:
  /// The machine's own sleep command.
  static support::START WithRealSleep() {
    support::START start;
    start.environment["PATH"] = support::PAUSES::PathWithRealSleep();
    return start;
  }
};

TEST_F(Pauses, AreMadeByTheSleepCommandOfThePath) {
  config.autoDiscover = "FALSE";
  StartLinked();
  ASSERT_TRUE(pauses.WaitUntilBegun(3, 3));
  EXPECT_EQ(pauses.Begun(), (std::vector<int>{3, 3, 3}));  // before each accept
  TCP_CLIENT client = ConnectCae();
  EXPECT_EQ(pauses.Begun(), (std::vector<int>{3, 3, 3}));
  client.Close();
  ASSERT_TRUE(pauses.WaitUntilBegun(3, 4));
  EXPECT_EQ(pauses.Begun(), (std::vector<int>{3, 3, 3, 2, 2, 3}));
}

TEST_F(Pauses, HandDownTheStandardStreamsAndNothingElse) {
  // All kinds of pauses, with the link and all clients up.
  config.initPollState = "TRUE";
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  TCP_CLIENT mon = ConnectMon();
  EXPECT_TRUE(Answers(*cae, "REBOOT:5", {"CIA: Card is REBOOTED", "RBT:0x5:OK"}));
  io.Close();
  TCP_CLIENT nextIo = ConnectIo();
  Unplug();
  ASSERT_TRUE(log.WaitForLine("[ERR] ttyUSB devices couldn't be found"));
  ASSERT_GE(pauses.Begun().size(), 8U);
  for (const std::string& descriptor : pauses.ChildDescriptors()) {
    const std::string target = descriptor.substr(descriptor.find('=') + 1);
    if (descriptor.starts_with("0=")) {
      EXPECT_EQ(target, "/dev/null");
    } else if (descriptor.starts_with("1=")) {
      EXPECT_TRUE(target.starts_with("pipe:")) << descriptor;
    } else {
      EXPECT_EQ(descriptor, "2=" + Folder() + "/output");
    }
  }
}

TEST_F(Pauses, AreRealSeconds) {
  const auto begin = steady_clock::now();
  Plug(0);
  Start(WithRealSleep());
  TCP_CLIENT io = ConnectIo();
  EXPECT_GE(steady_clock::now() - begin, milliseconds(3000));  // before accept
  TCP_CLIENT client = ConnectCae();
  const auto asked = steady_clock::now();
  EXPECT_TRUE(Answers(client, "REBOOT:5", {"CIA: Card is REBOOTED", "RBT:0x5:OK"}));
  EXPECT_GE(steady_clock::now() - asked, milliseconds(1000));  // for the card's answer
  const auto closed = steady_clock::now();
  io.Close();
  TCP_CLIENT next = ConnectIo();
  EXPECT_GE(steady_clock::now() - closed, milliseconds(2000 + 2000 + 3000));
  const auto left = steady_clock::now();
  next.Send("EXIT\n");
  EXPECT_TRUE(next.Receives(IoLine("VORN: Bye Bye...")));
  EXPECT_TRUE(next.IsClosed());
  EXPECT_GE(steady_clock::now() - left, milliseconds(1000));
}

TEST_F(Pauses, AreMadeAllTheSameWithoutASleepCommand) {
  support::START start;
  start.environment["PATH"] = Folder();
  const auto begin = steady_clock::now();
  Start(start);
  TCP_CLIENT client = ConnectCae();
  EXPECT_GE(steady_clock::now() - begin, milliseconds(3000));
  // No loop spins: in these seconds the adapter was looked for at most once in two.
  const auto passed = steady_clock::now() - begin;
  const auto searches = log.LinesWith("ttyUSB devices couldn't be found").size();
  EXPECT_LE(searches, static_cast<std::size_t>(passed / milliseconds(2000)) + 1);
  EXPECT_GE(searches, 1U);
  expectedOutput.reset();  // the shell complains of the missing commands
}

TEST_F(Pauses, WithoutAnAdapterAreTwoSecondsForEachSearch) {
  pauses.Hold(2);
  Start();
  ASSERT_TRUE(pauses.WaitUntilBegun(2));
  EXPECT_EQ(log.LinesWith("ttyUSB").size(), 1U);
  TCP_CLIENT client = ConnectCae();
  EXPECT_EQ(log.LinesWith("ttyUSB").size(), 1U);
  pauses.Release(2);
  ASSERT_TRUE(log.WaitForLine("[ERR] ttyUSB devices couldn't be found", 3));
  pauses.Hold(2);
  // One search for each pause, the one under way included.
  ASSERT_TRUE(support::WaitUntil(
      [&] { return static_cast<int>(log.LinesWith("ttyUSB").size()) == pauses.CountBegun(2); }));
}

TEST_F(Pauses, ACommandThatIsRunEndsWithoutAWordWhenNobodyReadsIt) {
  pauses.Hold(2);
  Start();
  ASSERT_TRUE(pauses.WaitUntilBegun(2));
  const std::vector<pid_t> children = support::Children(Pid());
  ASSERT_FALSE(children.empty());
  // Between its birth and its first own instruction a child blocks every signal.
  const auto keepsFrom = [](pid_t child, const char* field, int signal) {
    const std::string signals = support::StatusField(child, field);  // empty once it has ended
    return !signals.empty() && (std::stoull(signals, nullptr, 16) & (1ULL << (signal - 1))) != 0;
  };
  for (const pid_t child : children) {
    for (const char* const field : {"SigIgn", "SigBlk"}) {
      EXPECT_TRUE(support::WaitUntil([&] { return !keepsFrom(child, field, SIGPIPE); })) << field;
    }
  }
}

TEST_F(Pauses, ACommandThatIsRunIgnoresNoSignalThatTheDaemonOutlives) {
  pauses.Hold(1);
  pauses.Hold(2);
  Start();
  TCP_CLIENT client = ConnectCae();
  client.Send("EXIT\r\n");
  ASSERT_TRUE(pauses.WaitUntilBegun(1));  // on main
  ASSERT_TRUE(pauses.WaitUntilBegun(2));  // on a worker
  const std::vector<pid_t> children = support::Children(Pid());
  ASSERT_GE(children.size(), 2U);
  for (const pid_t child : children) {
    for (const int signal : {SIGPIPE, SIGXFSZ}) {
      const std::string ignored = support::StatusField(child, "SigIgn");  // empty once it has ended
      EXPECT_TRUE(ignored.empty() ||
                  (std::stoull(ignored, nullptr, 16) & (1ULL << (signal - 1))) == 0)
          << signal;
    }
  }
}

TEST_F(Pauses, AreTheSameAfterEveryClose) {
  config.autoDiscover = "FALSE";
  StartLinked();
  ASSERT_TRUE(pauses.WaitUntilBegun(3, 3));
  std::vector<int> expected = {3, 3, 3};
  for (int round = 0; round < 4; ++round) {
    TCP_CLIENT io = ConnectIo();
    if (round % 2 == 0) {
      io.Close();
    } else {
      io.Send("EXIT\n");
      expected.push_back(1);
    }
    ASSERT_TRUE(pauses.WaitUntilBegun(3, 3 + round + 1));
    expected.insert(expected.end(), {2, 2, 3});
    ASSERT_EQ(pauses.Begun(), expected) << "close " << round + 1;
  }
}

}  // namespace
