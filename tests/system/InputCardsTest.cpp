#include "tests/support/ListeningPorts.h"
#include "tests/system/SystemTest.h"

#include <atomic>

/// Input cards: their polls, what their answers change, and the lines that clients get.

namespace {

using std::chrono::microseconds;

class InputCards : public SYSTEM_TEST {
 protected:
  InputCards() { config.initPollState = "TRUE"; }

  static bool IsPollOf(const sim::REQUEST& request, int address) {
    return request.frame.size() >= 4 && request.frame[1] == 0x20 && request.frame[2] == address;
  }

  /// Waits until the card was asked count more times: its answers before the last are dealt with.
  void WaitForPolls(int address, int count = 2) {
    std::uint64_t after = adapter.Requests().Last();
    for (int i = 0; i < count; ++i) {
      const auto request = adapter.WaitForRequest(
          [&](const sim::REQUEST& each) { return IsPollOf(each, address); }, kLimit, after);
      ASSERT_TRUE(request) << "card " << address << " is not polled";
      after = request->number;
    }
  }

  /// The next poll of the card is answered with this body, once; then the card answers itself.
  void AnswerNextPollWith(int address, const sim::Bytes& body) {
    const auto isUsed = std::make_shared<std::atomic<bool>>(false);
    adapter.SetReplyHook([=](const sim::REQUEST& request,
                             const std::optional<sim::Bytes>&) -> std::optional<sim::REPLY> {
      if (IsPollOf(request, address) && !isUsed->exchange(true)) {
        return sim::REPLY{{microseconds(0), sim::Frame(body)}};
      }
      return std::nullopt;
    });
    ASSERT_TRUE(support::WaitUntil([&] { return isUsed->load(); }));
    WaitForPolls(address);
  }
};

TEST_F(InputCards, ArePolledWithTheirChannelCountAndOtherCardsAreNot) {
  StartIdentified();
  EXPECT_TRUE(WaitForFrame("03 20 03 02"));
  EXPECT_TRUE(WaitForFrame("03 20 08 01"));
  EXPECT_TRUE(WaitForFrame("03 20 0F 06"));
  WaitForPolls(0xF, 5);
  for (const std::string& frame : Frames()) {
    EXPECT_TRUE(frame == "01 30" || frame == "03 20 03 02" || frame == "03 20 08 01" ||
                frame == "03 20 0F 06")
        << frame;
  }
}

TEST_F(InputCards, AreNotPolledWhilePollingIsOff) {
  config.initPollState = "FALSE";
  StartIdentified();
  EXPECT_TRUE(Answers(*cae, "REBOOT:5", {"CIA: Card is REBOOTED", "RBT:0x5:OK"}));
  EXPECT_EQ(Frames(), (std::vector<std::string>{"01 30", "04 50 05 01 AB"}));
  EXPECT_TRUE(Answers(*cae, "ENABLEPOLL", {"CIA: GLOBAL POLLING IS ENABLED"}));
  WaitForPolls(3);
  EXPECT_TRUE(Answers(*cae, "DISABLEPOLL", {"CIA: GLOBAL POLLING IS DISABLED"}));
  // Polls that were queued already may still go out, then none.
  EXPECT_TRUE(Answers(*cae, "REBOOT:5", {"CIA: Card is REBOOTED", "RBT:0x5:OK"}));
  const std::size_t frames = Frames().size();
  EXPECT_TRUE(Answers(*cae, "REBOOT:5", {"CIA: Card is REBOOTED", "RBT:0x5:OK"}));
  EXPECT_EQ(Frames().size(), frames + 1);
}

TEST_F(InputCards, ACardThatIsSwitchedOffIsNotPolled) {
  StartIdentified();
  EXPECT_TRUE(Answers(*cae, "POLLOFF:F", {"CIA: POLLOFF is OK at address F"}));
  WaitForPolls(3);
  const std::uint64_t from = adapter.Requests().Last();
  WaitForPolls(3, 5);
  for (const std::string& frame : Frames(from)) {
    EXPECT_NE(frame, "03 20 0F 06");
  }
  EXPECT_TRUE(Answers(*cae, "POLLON:F", {"CIA: POLLON is OK at address F"}));
  WaitForPolls(0xF);
}

TEST_F(InputCards, AButtonReachesTheIoAndMonClients) {
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  TCP_CLIENT mon = ConnectMon();
  ASSERT_TRUE(rack.Press(3, 6));
  EXPECT_TRUE(io.Receives(IoLine("a3b0d40")));
  EXPECT_TRUE(mon.Receives("a3b0d40\n\r"));
  ASSERT_TRUE(rack.Release(3, 6));
  EXPECT_TRUE(io.Receives(IoLine("a3b0d00")));
  EXPECT_TRUE(mon.Receives("a3b0d00\n\r"));
  ASSERT_TRUE(rack.Press(3, 15));
  EXPECT_TRUE(io.Receives(IoLine("a3b1d80")));
  EXPECT_TRUE(mon.Receives("a3b1d80\n\r"));
  EXPECT_TRUE(Answers(*cae, "GETLASTINPST:3=1", {"CIA: LAST INPUT STATE SENT ON IO INTERFACE"}));
  EXPECT_TRUE(io.Receives(IoLine("a3b1d80")));
}

TEST_F(InputCards, ADigitalInputWhoseBothGroupsChangeYieldsTwoLinesB0BeforeB1) {
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  ASSERT_TRUE(Answers(*cae, "POLLOFF:F", {"CIA: POLLOFF is OK at address F"}));
  AnswerNextPollWith(3, {0x21, 3, 0xA5, 0x7F});
  EXPECT_TRUE(io.Receives(IoLine("a3b0dA5") + IoLine("a3b1d7F")));
  EXPECT_TRUE(io.Receives(IoLine("a3b0d00") + IoLine("a3b1d00")));  // the card itself again
}

TEST_F(InputCards, OnlyTheGroupThatChangedIsReported) {
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  ASSERT_TRUE(rack.Set(3, 0, 0x11));
  EXPECT_TRUE(io.Receives(IoLine("a3b0d11")));
  ASSERT_TRUE(rack.Set(3, 1, 0x22));
  EXPECT_TRUE(io.Receives(IoLine("a3b1d22")));
  ASSERT_TRUE(rack.Set(3, 0, 0x12));
  EXPECT_TRUE(io.Receives(IoLine("a3b0d12")));
}

TEST_F(InputCards, KeysAndTurnsAreReportedOneByOne) {
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  ASSERT_TRUE(rack.Press(8, 0x12));
  EXPECT_TRUE(io.Receives(IoLine("a8b0d12")));
  ASSERT_TRUE(rack.Release(8, 0x12));
  EXPECT_TRUE(io.Receives(IoLine("a8b0d00")));
  ASSERT_TRUE(rack.Turn(8, 2));
  EXPECT_TRUE(io.Receives(IoLine("a8b0d81") + IoLine("a8b0d82")));
}

TEST_F(InputCards, AnalogueInputReportsTheAverageOfSixPollsAtTheSeventh) {
  // Channel 0: 10, 20, 30, 40, 50, 61 make 211, a sixth of which is 35; the seventh, 255, is not
  // used. Channel 1 stays 7. Channel 2: six times 255. Then nothing changes any more.
  const auto polls = std::make_shared<std::atomic<int>>(0);
  adapter.SetReplyHook([polls](const sim::REQUEST& request,
                               const std::optional<sim::Bytes>&) -> std::optional<sim::REPLY> {
    if (!IsPollOf(request, 0xF)) {
      return std::nullopt;
    }
    constexpr std::uint8_t kSamples[] = {10, 20, 30, 40, 50, 61, 255};
    const int poll = polls->fetch_add(1);
    const std::uint8_t first = poll < 7 ? kSamples[poll] : 35;
    return sim::REPLY{{microseconds(0), sim::Frame({0x21, 0xF, first, 7, 255, 0, 0, 0})}};
  });
  config.initPollState = "FALSE";
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  EXPECT_TRUE(Answers(*cae, "ENABLEPOLL", {"CIA: GLOBAL POLLING IS ENABLED"}));
  EXPECT_TRUE(io.Receives(IoLine("aFb0d23") + IoLine("aFb1d07") + IoLine("aFb2dFF")));
  ASSERT_GE(polls->load(), 7);
  // The seventh poll made the report, not an earlier or a later one.
  WaitForPolls(0xF, 15);
  Synchronise(*cae);
  EXPECT_TRUE(Answers(*cae, "GETLASTINPST:F=0", {"CIA: LAST INPUT STATE SENT ON IO INTERFACE"}));
  EXPECT_TRUE(io.Receives(IoLine("aFb0d23")));
}

TEST_F(InputCards, AnalogueSamplesAreCountedFromReportToReport) {
  // Each answer is the number of the poll, from 0: the first report is the average of 0 to 5, the
  // second of 7 to 12, the third of 14 to 19.
  const auto polls = std::make_shared<std::atomic<int>>(0);
  adapter.SetReplyHook([polls](const sim::REQUEST& request,
                               const std::optional<sim::Bytes>&) -> std::optional<sim::REPLY> {
    if (!IsPollOf(request, 0xF)) {
      return std::nullopt;
    }
    const int poll = std::min(polls->fetch_add(1), 20);
    return sim::REPLY{
        {microseconds(0), sim::Frame({0x21, 0xF, 0, 0, 0, 0, 0, static_cast<std::uint8_t>(poll)})}};
  });
  config.initPollState = "FALSE";
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  EXPECT_TRUE(Answers(*cae, "ENABLEPOLL", {"CIA: GLOBAL POLLING IS ENABLED"}));
  EXPECT_TRUE(
      io.Receives(IoLine("aFb5d02") + IoLine("aFb5d09") + IoLine("aFb5d10") + IoLine("aFb5d14")));
}

TEST_F(InputCards, APotReachesTheIoClient) {
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  ASSERT_TRUE(rack.Set(0xF, 3, 0xE0));
  // The sample in which it was turned may be among older ones; in the end it is where it is.
  EXPECT_TRUE(io.ReadUntil("aFb3dE0\n\r").ends_with("aFb3dE0\n\r"));
}

TEST_F(InputCards, WithoutAnIoClientInputIsDroppedEvenForAMonClient) {
  StartIdentified();
  TCP_CLIENT mon = ConnectMon();
  ASSERT_TRUE(rack.Set(3, 0, 0x11));
  WaitForPolls(3);
  Synchronise(*cae);  // the master loop has taken the line
  TCP_CLIENT io = ConnectIo();
  ASSERT_TRUE(rack.Set(3, 0, 0x22));
  EXPECT_TRUE(io.Receives(IoLine("a3b0d22")));
  EXPECT_TRUE(mon.Receives("a3b0d22\n\r"));
}

TEST_F(InputCards, AQReplySendsTheLinesOfTheLastChangeAgain) {
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  EXPECT_TRUE(Answers(*cae, "POLLOFF:F", {"CIA: POLLOFF is OK at address F"}));
  // Frozen in the pass in which it changed: an unchanged answer would clear the flags.
  ASSERT_TRUE(Answers(*cae, "DISABLEPOLL", {"CIA: GLOBAL POLLING IS DISABLED"}));
  EXPECT_TRUE(Answers(*cae, "REBOOT:5", {"CIA: Card is REBOOTED", "RBT:0x5:OK"}));
  adapter.SetReplyHook([](const sim::REQUEST& request,
                          const std::optional<sim::Bytes>&) -> std::optional<sim::REPLY> {
    // The card's change comes in place of the answer to an output request to it.
    if (request.frame == sim::Bytes{0x05, 0x10, 5, 2, 0xFE, 0xFF}) {
      return sim::REPLY{{microseconds(0), sim::Frame({0x21, 3, 0x40, 0x01})}};
    }
    return std::nullopt;
  });
  io.Send("a5b0dFE\n");
  EXPECT_TRUE(io.Receives(IoLine("a3b0d40") + IoLine("a3b1d01")));
  EXPECT_TRUE(Answers(*cae, "REBOOT:3", {"CIA: Card is REBOOTED", "RBT:0x3:OK"}));
  EXPECT_TRUE(io.Receives(IoLine("a3b0d40") + IoLine("a3b1d01")));
  EXPECT_TRUE(Answers(*cae, "REBOOT:3", {"CIA: Card is REBOOTED", "RBT:0x3:OK"}));
  EXPECT_TRUE(io.Receives(IoLine("a3b0d40") + IoLine("a3b1d01")));
}

TEST_F(InputCards, AQReplyForACardThatNeverChangedSendsNothing) {
  config.initPollState = "FALSE";
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  EXPECT_TRUE(Answers(*cae, "REBOOT:3", {"CIA: Card is REBOOTED", "RBT:0x3:OK"}));
  EXPECT_TRUE(Answers(*cae, "REBOOT:5", {"CIA: Card is REBOOTED", "RBT:0x5:OK"}));
  io.Send("EXIT\n");
  EXPECT_TRUE(io.Receives(IoLine("VORN: Bye Bye...")));
}

TEST_F(InputCards, AnswersThatNameNoInputCardOrAreTooShortAreIgnored) {
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  for (const sim::Bytes& body :
       std::vector<sim::Bytes>{{0x21},                      // no address
                               {0x21, 3},                   // no data
                               {0x21, 3, 0x55},             // half of it
                               {0x21, 8},                   // no key
                               {0x21, 0xF, 9, 9, 9, 9, 9},  // five of six pots
                               {0x21, 0x10, 0x55, 0x55},    // beyond the bus
                               {0x21, 0xFF, 0x55, 0x55},
                               {0x21, 5, 0x55, 0x55},  // an output card
                               {0x21, 2, 0x55, 0x55},  // an empty slot
                               {0x51, 0x10, 0x55, 0x55},
                               {0x51, 0xFF},
                               {0x51},
                               {0x31},  // an identification without slots
                               {0x31, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4, 4},  // of fifteen
                               {'Z', 3, 0x55, 0x55},  // no reply at all
                               {}}) {
    SCOPED_TRACE(sim::ToHex(body));
    AnswerNextPollWith(3, body);
  }
  ASSERT_TRUE(rack.Set(3, 0, 0x01));
  EXPECT_TRUE(io.Receives(IoLine("a3b0d01")));
  EXPECT_TRUE(
      Answers(*cae, "POLLSTATE",
              {"CIA: GLOBAL POLLING IS ENABLED", "PTI:0x3:ON", "PTI:0x8:ON", "PTI:0xF:ON"}));
  EXPECT_EQ(log.LinesWith("timeout"), std::vector<std::string>{});
}

TEST_F(InputCards, LongerAnswersThanNeededCountWithTheirFirstBytes) {
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  AnswerNextPollWith(3, {0x21, 3, 0x55, 0x66, 0x77, 0x88});
  EXPECT_TRUE(
      io.Receives(IoLine("a3b0d55") + IoLine("a3b1d66") + IoLine("a3b0d00") + IoLine("a3b1d00")));
}

TEST_F(InputCards, AnErrorReplyToAPollIsDroppedWithoutHarm) {
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  for (const std::uint8_t code : sim::Bytes{0x12, '#', '$', 'N', 'B', 'C'}) {
    AnswerNextPollWith(3, {code, 3, 0x55, 0x55});
  }
  ASSERT_TRUE(rack.Set(3, 0, 0x01));
  EXPECT_TRUE(io.Receives(IoLine("a3b0d01")));
  EXPECT_EQ(log.LinesWith("timeout"), std::vector<std::string>{});
}

}  // namespace
