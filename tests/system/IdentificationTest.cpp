#include "tests/system/SystemTest.h"

#include <atomic>
#include <memory>

/// Identification of the cards, the discovery lists, and what the cards start with.

namespace {

using std::chrono::microseconds;

class Identification : public SYSTEM_TEST {
 protected:
  /// Identification requests are answered with these type codes.
  void IdentifyAs(const sim::Bytes& codes) {
    adapter.SetReplyHook([codes](const sim::REQUEST& request,
                                 const std::optional<sim::Bytes>&) -> std::optional<sim::REPLY> {
      if (request.frame != sim::Bytes{0x01, 0x30}) {
        return std::nullopt;
      }
      sim::Bytes body{0x31};
      body.insert(body.end(), codes.begin(), codes.end());
      return sim::REPLY{{microseconds(0), sim::Frame(body)}};
    });
  }

  static std::vector<std::string> List(const std::string& title,
                                       const std::vector<std::string>& names) {
    std::vector<std::string> lines{title};
    for (std::size_t i = 0; i < names.size(); ++i) {
      lines.push_back(std::string("DTI:0x") + "0123456789ABCDEF"[i] + ":" + names[i]);
    }
    return lines;
  }

  static std::vector<std::string> DefaultNames() {
    return {"6 channel RC SERVO CONTROLLER",
            "3 channel DC MOTOR CONTROLLER",
            "EMPTY",
            "16 channel DIGITAL INPUT",
            "EMPTY",
            "16 channel DIGITAL OUTPUT",
            "EMPTY",
            "EMPTY",
            "KEYMX and ROTE CONTROLLER",
            "IR REMOTE CONTROLLER",
            "EMPTY",
            "EMPTY",
            "EMPTY",
            "EMPTY",
            "ALPHANUMERIC LCD CONTROLLER",
            "6 channel ANALOGUE INPUT"};
  }
};

TEST_F(Identification, EveryTypeCodeHasItsName) {
  IdentifyAs({3, 4, 5, 6, 7, 8, 9, 10, 0, 255, 1, 2, 11, 128, 254, 0x31});
  StartIdentified();
  EXPECT_TRUE(Answers(
      *cae, "DISCOVER",
      List(
          "DISCOVER LIST:",
          {"16 channel DIGITAL OUTPUT", "16 channel DIGITAL INPUT", "6 channel RC SERVO CONTROLLER",
           "3 channel DC MOTOR CONTROLLER", "6 channel ANALOGUE INPUT", "KEYMX and ROTE CONTROLLER",
           "ALPHANUMERIC LCD CONTROLLER", "IR REMOTE CONTROLLER", "EMPTY", "CARD?", "UNIDENTIFIED",
           "UNIDENTIFIED", "UNIDENTIFIED", "UNIDENTIFIED", "UNIDENTIFIED", "UNIDENTIFIED"})));
  EXPECT_TRUE(
      Answers(*cae, "POLLSTATE",
              {"CIA: GLOBAL POLLING IS DISABLED", "PTI:0x1:ON", "PTI:0x4:ON", "PTI:0x5:ON"}));
}

TEST_F(Identification, AtStartFollowsTheLinkUpAfterAPauseOfOneSecond) {
  pauses.Hold(1);
  StartLinked();
  ASSERT_TRUE(pauses.WaitUntilBegun(1));
  EXPECT_EQ(Frames(), std::vector<std::string>{});
  pauses.Release(1);
  EXPECT_TRUE(WaitForFrame("01 30"));
  TCP_CLIENT client = ConnectCae();
  Synchronise(client);
  EXPECT_EQ(Frames(), std::vector<std::string>{"01 30"});
}

TEST_F(Identification, IsNotAskedForWhenAutoDiscoverIsOff) {
  config.autoDiscover = "FALSE";
  StartLinked();
  TCP_CLIENT client = ConnectCae();
  EXPECT_TRUE(
      Answers(client, "DISCOVER", List("DISCOVER LIST:", std::vector<std::string>(16, "EMPTY"))));
  EXPECT_TRUE(Answers(client, "REBOOT:5", {"CIA: Card is REBOOTED", "RBT:0x5:OK"}));
  EXPECT_EQ(Frames(), std::vector<std::string>{"04 50 05 01 AB"});
  EXPECT_EQ(pauses.CountBegun(1), 1);  // the card request's
}

TEST_F(Identification, DiscoverListsAllSixteenSlots) {
  StartIdentified();
  EXPECT_TRUE(Answers(*cae, "DISCOVER", List("DISCOVER LIST:", DefaultNames())));
}

TEST_F(Identification, ForceDiscoverAsksAgainAndLists) {
  config.autoDiscover = "FALSE";
  StartLinked();
  TCP_CLIENT client = ConnectCae();
  EXPECT_TRUE(Answers(client, "FORCEDISCOVER", List("FORCED DISCOVER LIST:", DefaultNames())));
  EXPECT_EQ(Frames(), std::vector<std::string>{"01 30"});
  EXPECT_EQ(pauses.CountBegun(1), 2);
  // A card that was pulled or plugged in meanwhile.
  rack.Remove(0);
  rack.Insert(7, sim::type::kIr);
  EXPECT_TRUE(Answers(client, "DISCOVER", List("DISCOVER LIST:", DefaultNames())));
  std::vector<std::string> names = DefaultNames();
  names[0] = "EMPTY";
  names[7] = "IR REMOTE CONTROLLER";
  EXPECT_TRUE(Answers(client, "FORCEDISCOVER", List("FORCED DISCOVER LIST:", names)));
}

TEST_F(Identification, ForceDiscoverWaitsOneSecondBeforeItAsks) {
  config.autoDiscover = "FALSE";
  StartLinked();
  TCP_CLIENT client = ConnectCae();
  pauses.Hold(1);
  client.Send("FORCEDISCOVER\r\n");
  ASSERT_TRUE(pauses.WaitUntilBegun(1));
  EXPECT_EQ(Frames(), std::vector<std::string>{});
  pauses.Release(1);
  EXPECT_TRUE(client.Receives(CaeReply(List("FORCED DISCOVER LIST:", DefaultNames()))));
}

TEST_F(Identification, ForceDiscoverWhilePollingIsOffLeavesItOff) {
  StartIdentified();
  EXPECT_TRUE(Answers(*cae, "FORCEDISCOVER", List("FORCED DISCOVER LIST:", DefaultNames())));
  EXPECT_TRUE(
      Answers(*cae, "POLLSTATE",
              {"CIA: GLOBAL POLLING IS DISABLED", "PTI:0x3:ON", "PTI:0x8:ON", "PTI:0xF:ON"}));
}

TEST_F(Identification, PollingPausesDuringForceDiscoverAndResumesAfterTheListing) {
  config.initPollState = "TRUE";
  StartIdentified();
  EXPECT_TRUE(Answers(*cae, "POLLOFF:3", {"CIA: POLLOFF is OK at address 3"}));
  pauses.Hold(1);
  const int pausesBefore = pauses.CountBegun(1);
  cae->Send("FORCEDISCOVER\r\n");
  ASSERT_TRUE(pauses.WaitUntilBegun(1, pausesBefore + 1));
  // What was queued already drains; then the line is quiet, though the pause goes on.
  constexpr std::chrono::milliseconds kQuiet(50);
  ASSERT_TRUE(support::WaitUntil([&] {
    return std::chrono::steady_clock::now() - adapter.Requests().Since().back().when > kQuiet;
  }));
  const std::uint64_t from = adapter.Requests().Last();
  pauses.Release(1);
  EXPECT_TRUE(cae->Receives(CaeReply(List("FORCED DISCOVER LIST:", DefaultNames()))));
  // The records were cleared: the flag of card 3 is set again, and the polls go on.
  EXPECT_TRUE(WaitForFrame("03 20 03 02", from));
  EXPECT_TRUE(
      Answers(*cae, "POLLSTATE",
              {"CIA: GLOBAL POLLING IS ENABLED", "PTI:0x3:ON", "PTI:0x8:ON", "PTI:0xF:ON"}));
  const std::vector<sim::REQUEST> requests = adapter.Requests().Since(from);
  EXPECT_EQ(sim::ToHex(requests.at(0).frame), "01 30");
  EXPECT_GT(requests.at(1).when - requests.at(0).when, kQuiet);
}

TEST_F(Identification, AReplyThatComesAfterTheSecondIsListedAtTheNextDiscovery) {
  config.autoDiscover = "FALSE";
  StartLinked();
  TCP_CLIENT client = ConnectCae();
  adapter.SetReplyHook(
      [](const sim::REQUEST&, const std::optional<sim::Bytes>&) -> std::optional<sim::REPLY> {
        return sim::REPLY{{microseconds(0), sim::Frame({'B'})}};
      });
  EXPECT_TRUE(Answers(client, "FORCEDISCOVER",
                      List("FORCED DISCOVER LIST:", std::vector<std::string>(16, "EMPTY"))));
  adapter.SetReplyHook(nullptr);
  EXPECT_TRUE(Answers(client, "FORCEDISCOVER", List("FORCED DISCOVER LIST:", DefaultNames())));
}

TEST_F(Identification, ClearsStoredOutputsToTheirStartValues) {
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  io.Send("a5b0d11\n");
  EXPECT_TRUE(WaitForFrame("05 10 05 02 11 FF"));
  EXPECT_TRUE(Answers(*cae, "FORCEDISCOVER", List("FORCED DISCOVER LIST:", DefaultNames())));
  io.Send("a5b1d22\n");
  EXPECT_TRUE(WaitForFrame("05 10 05 02 FF 22"));
  io.Send("a0b0d33\n");
  EXPECT_TRUE(WaitForFrame("09 10 00 06 33 80 80 80 80 80"));
  io.Send("a1b2d44\n");
  EXPECT_TRUE(WaitForFrame("07 10 01 04 00 00 44 00"));
}

TEST_F(Identification, SendsNoInputLines) {
  config.initPollState = "FALSE";
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  EXPECT_TRUE(Answers(*cae, "FORCEDISCOVER", List("FORCED DISCOVER LIST:", DefaultNames())));
  io.Send("EXIT\n");
  EXPECT_TRUE(io.Receives(IoLine("VORN: Bye Bye...")));
}

TEST_F(Identification, RepeatedAfterAReconnectionDoublesThePollFrameUntilAForcedDiscovery) {
  config.initPollState = "TRUE";
  StartIdentified();
  EXPECT_TRUE(WaitForFrame("03 20 03 02"));
  Unplug();
  ASSERT_TRUE(log.WaitForLine("[INF] comm timeout /dev/ttyUSB0"));
  Plug(0);
  EXPECT_TRUE(WaitForFrame("06 20 03 02 20 03 02"));
  EXPECT_TRUE(WaitForFrame("06 20 08 01 20 08 01"));
  EXPECT_TRUE(WaitForFrame("06 20 0F 06 20 0F 06"));
  EXPECT_TRUE(Answers(*cae, "FORCEDISCOVER", List("FORCED DISCOVER LIST:", DefaultNames())));
  const std::uint64_t from = adapter.Requests().Last();
  EXPECT_TRUE(WaitForFrame("03 20 03 02", from));
}

TEST_F(Identification, APollFrameThatHasOutgrownAFrameIsDroppedWithoutHarm) {
  // Each poll of the digital input is answered by an identification, which appends to it.
  adapter.SetReplyHook([](const sim::REQUEST& request,
                          const std::optional<sim::Bytes>&) -> std::optional<sim::REPLY> {
    if (request.frame.size() < 4 || request.frame[1] != 0x20) {
      return std::nullopt;
    }
    return sim::REPLY{
        {microseconds(0), sim::Frame({0x31, 0, 0, 0, 4, 0, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0})}};
  });
  config.initPollState = "TRUE";
  config.speedPercent = "100";
  StartIdentified();
  sim::Bytes longest{252};
  for (int i = 0; i < 84; ++i) {
    longest.insert(longest.end(), {0x20, 0x03, 0x02});
  }
  ASSERT_TRUE(WaitForFrame(sim::ToHex(longest)));
  TCP_CLIENT io = ConnectIo();
  io.Send("a5b0d12\n");
  EXPECT_TRUE(WaitForFrame("05 10 05 02 12 FF"));
  EXPECT_TRUE(Answers(*cae, "REBOOT:5", {"CIA: Card is REBOOTED", "RBT:0x5:OK"}));
  for (const sim::REQUEST& request : adapter.Requests().Since()) {
    ASSERT_LE(request.frame.size(), 253U);
  }
  EXPECT_EQ(log.LinesWith("timeout"), std::vector<std::string>{});
  adapter.SetReplyHook(nullptr);
  EXPECT_TRUE(Answers(*cae, "FORCEDISCOVER", List("FORCED DISCOVER LIST:", DefaultNames())));
  EXPECT_TRUE(WaitForFrame("03 20 03 02", adapter.Requests().Last()));
}

}  // namespace
