#include "tests/support/ProcessInfo.h"
#include "tests/system/SystemTest.h"

#include <csignal>

/// The pauses of whole seconds: which are made where, and what their children inherit.

namespace {

class Pauses : public SYSTEM_TEST {};

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
  ASSERT_TRUE(log.WaitForLine(kNoDevice));
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

}  // namespace
