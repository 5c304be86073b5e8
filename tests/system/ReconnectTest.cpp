#include "tests/support/ProcessInfo.h"
#include "tests/system/SystemTest.h"

#include <algorithm>

/// The adapter is pulled out, comes back, or falls silent; the daemon goes on without a restart.

namespace {

class Reconnect : public SYSTEM_TEST {};

TEST_F(Reconnect, AnAdapterThatIsPulledOutIsToldAndSearchedUntilAControllerAnswers) {
  StartIdentified();
  pauses.Hold(2);
  Unplug();
  EXPECT_TRUE(Answers(*cae, "REBOOT:5", {"CIE: BUS WRITE ERROR"}));
  ASSERT_TRUE(log.WaitForLine(kNoDevice));
  EXPECT_EQ(log.LinesWith("/dev/ttyUSB0"),
            (std::vector<std::string>{"[INF] try to catch hardware on /dev/ttyUSB0", kHardwareFound,
                                      "[ERR] unable to  write to /dev/ttyUSB0",
                                      "[INF] comm timeout /dev/ttyUSB0"}));
  ASSERT_TRUE(pauses.WaitUntilBegun(2));
  EXPECT_EQ(log.Count(kNoDevice), 1);
  pauses.Release(2);
  ASSERT_TRUE(log.WaitForLine(kNoDevice, 3));
  Plug(7);
  ASSERT_TRUE(log.WaitForLine("[INF] hardware found on /dev/ttyUSB7 version: 2.04"));
  EXPECT_TRUE(Answers(*cae, "ENABLEPOLL", {"CIA: GLOBAL POLLING IS ENABLED"}));
  TCP_CLIENT io = ConnectIo();
  ASSERT_TRUE(rack.Press(3, 6));
  EXPECT_TRUE(io.Receives(IoLine("a3b0d40")));
}

TEST_F(Reconnect, AnAdapterThatIsPulledOutWhilePollingIsFoundAgain) {
  config.initPollState = "TRUE";
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  Unplug();
  ASSERT_TRUE(log.WaitForLine("[INF] comm timeout /dev/ttyUSB0"));
  ASSERT_TRUE(log.WaitForLine(kNoDevice));
  Plug(0);
  ASSERT_TRUE(rack.Press(3, 6));
  EXPECT_TRUE(io.Receives(IoLine("a3b0d40")));
}

TEST_F(Reconnect, ThePortIsClosedAndNoDescriptorIsLeftBehind) {
  StartIdentified();
  for (int i = 0; i < 3; ++i) {
    const std::string near = adapter.NearPath();
    EXPECT_EQ(support::DescriptorsOf(Pid(), near).size(), 1U);
    Unplug();
    cae->Send("REBOOT:5\r\n");
    EXPECT_TRUE(cae->Receives(CaeReply({"CIE: BUS WRITE ERROR"})));
    ASSERT_TRUE(log.WaitForLine("[INF] comm timeout /dev/ttyUSB0", i + 1));
    ASSERT_TRUE(support::WaitUntil([&] {
      for (const auto& [number, target] : support::OpenDescriptors(Pid())) {
        if (target.starts_with("/dev/pts/")) {
          return false;
        }
      }
      return true;
    }));
    Plug(0);
    ASSERT_TRUE(log.WaitForLine(kHardwareFound, i + 2));
  }
}

TEST_F(Reconnect, WhatIsQueuedWhileTheLinkIsDownIsSentAfterwards) {
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  Unplug();
  // The first one notices and is lost; the others wait.
  io.Send("a5b0d01\n");
  ASSERT_TRUE(log.WaitForLine(kNoDevice));
  for (const char* line : {"a5b0d02\n", "a5b0d03\n", "a0b0d44\n"}) {
    io.SendAndWaitUntilRead(line);
  }
  Synchronise(*cae);
  const std::uint64_t from = adapter.Requests().Last();
  Plug(0);
  EXPECT_TRUE(WaitForFrame("05 10 05 02 02 FF", from));
  EXPECT_TRUE(WaitForFrame("05 10 05 02 03 FF", from));
  EXPECT_TRUE(WaitForFrame("09 10 00 06 44 80 80 80 80 80", from));
  for (const std::string& frame : Frames(from)) {
    EXPECT_NE(frame, "05 10 05 02 01 FF");
  }
}

TEST_F(Reconnect, ACardThatDoesNotAnswerCostsTheLinkAndThatFrameOnly) {
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  adapter.SetReplyHook([](const sim::REQUEST& request,
                          const std::optional<sim::Bytes>&) -> std::optional<sim::REPLY> {
    if (request.frame == sim::Bytes{0x05, 0x10, 5, 2, 0x01, 0xFF}) {
      return sim::REPLY{};
    }
    return std::nullopt;
  });
  io.Send("a5b0d01\na5b0d02\na0b0d44\n");
  ASSERT_TRUE(log.WaitForLine("[INF] comm timeout /dev/ttyUSB0"));
  EXPECT_TRUE(log.WaitForLine(kHardwareFound, 2));
  EXPECT_TRUE(WaitForFrame("05 10 05 02 02 FF"));
  const std::vector<std::string> frames = Frames();
  EXPECT_EQ(std::count(frames.begin(), frames.end(), "05 10 05 02 01 FF"), 1);
}

TEST_F(Reconnect, WithAutoDiscoverOffTheCardTableIsKept) {
  config.autoDiscover = "FALSE";
  StartLinked();
  TCP_CLIENT client = ConnectCae();
  client.Send("FORCEDISCOVER\r\n");
  client.ReadUntil("\r>\r\n\r");
  Unplug();
  TCP_CLIENT io = ConnectIo();
  io.Send("a5b0d01\n");
  ASSERT_TRUE(log.WaitForLine(kNoDevice));
  Plug(0);
  ASSERT_TRUE(log.WaitForLine(kHardwareFound, 2));
  io.Send("a5b1d02\n");
  EXPECT_TRUE(WaitForFrame("05 10 05 02 01 02"));
  EXPECT_EQ(Frames(), (std::vector<std::string>{"01 30", "05 10 05 02 01 02"}));
}

TEST_F(Reconnect, ARackThatIsPoweredOffAndOnIsFoundAgain) {
  config.initPollState = "TRUE";
  StartIdentified();
  adapter.SetReplyHook(
      [](const sim::REQUEST&, const std::optional<sim::Bytes>&) -> std::optional<sim::REPLY> {
        return sim::REPLY{};
      });
  ASSERT_TRUE(log.WaitForLine("[INF] comm timeout /dev/ttyUSB0", 2));
  adapter.SetReplyHook(nullptr);
  ASSERT_TRUE(log.WaitForLine(kHardwareFound, 2));
  // Silence is no write error.
  EXPECT_EQ(log.LinesWith("[ERR]"), std::vector<std::string>{});
}

}  // namespace
