#include "tests/system/SystemTest.h"

#include <string>
#include <vector>

/// What the daemon and the rack, which share no code, understand of each other: the adapter is
/// found, the cards are known, and their input reaches the clients.

namespace {

class Bus : public SYSTEM_TEST {
 protected:
  /// Log lines about adapters.
  std::vector<std::string> AboutHardware() const { return log.LinesWith("hardware"); }

  static std::vector<std::string> ForcedList(const std::vector<std::string>& names) {
    std::vector<std::string> lines{"FORCED DISCOVER LIST:"};
    for (std::size_t i = 0; i < names.size(); ++i) {
      lines.push_back(std::string("DTI:0x") + "0123456789ABCDEF"[i] + ":" + names[i]);
    }
    return lines;
  }
};

TEST_F(Bus, TheHandshakeIsTheFirstFrameAndTheVersionIsLogged) {
  rack.SetVersion("7.x9");
  config.autoDiscover = "FALSE";
  StartLinked();
  EXPECT_EQ(AboutHardware(),
            (std::vector<std::string>{"[INF] try to catch hardware on /dev/ttyUSB0",
                                      "[INF] hardware found on /dev/ttyUSB0 version: 7.x9"}));
  const std::vector<sim::REQUEST> requests = adapter.Requests().Since();
  ASSERT_EQ(requests.size(), 1U);
  EXPECT_EQ(sim::ToHex(requests[0].frame), "03 40 6F 9A");
}

TEST_F(Bus, AVersionThatBeginsWithAZeroByteIsEmpty) {
  adapter.SetReplyHook([](const sim::REQUEST& request, const std::optional<sim::Bytes>&) {
    // The first byte is no error code, but ends the text before the version begins.
    const sim::REPLY reply{{std::chrono::microseconds(0), sim::Frame({0x00, '2', '.', '0', '4'})}};
    return request.frame[1] == sim::request::kHandshake ? std::optional(reply) : std::nullopt;
  });
  StartLinked();
  EXPECT_EQ(AboutHardware().back(), "[INF] hardware found on /dev/ttyUSB0 version: ");
}

TEST_F(Bus, AdaptersAreTriedInTheOrderOfTheirNamesAsText) {
  sim::ADAPTER other(&rack);
  ASSERT_TRUE(other.Plug(2));
  Plug(10);
  Start();
  ASSERT_TRUE(support::WaitUntil([&] { return !log.LinesWith("hardware found").empty(); }));
  EXPECT_EQ(AboutHardware(),
            (std::vector<std::string>{"[INF] try to catch hardware on /dev/ttyUSB10",
                                      "[INF] hardware found on /dev/ttyUSB10 version: 2.04"}));
  EXPECT_EQ(other.Counters().requests, 0U);
}

TEST_F(Bus, AChatteringAdapterBeforeTheRightOneIsLeftOnceItIsUnplugged) {
  config.initPollState = "TRUE";
  sim::ADAPTER other(nullptr, {});
  ASSERT_TRUE(other.Plug(0));
  other.SetChatter(std::chrono::milliseconds(1));
  Plug(1);
  pauses.SetLength(2, std::chrono::milliseconds(20));
  Start();
  // Whatever the daemon takes the nonsense for, it stays the same daemon and serves its clients.
  ASSERT_TRUE(log.WaitForLine("[INF] try to catch hardware on /dev/ttyUSB0"));
  ASSERT_TRUE(other.Unplug());
  ASSERT_TRUE(log.WaitForLine("[INF] hardware found on /dev/ttyUSB1 version: 2.04"));
  TCP_CLIENT client = ConnectCae();
  TCP_CLIENT io = ConnectIo();
  ASSERT_TRUE(WaitForFrame("01 30"));
  ASSERT_TRUE(rack.Press(3, 6));
  EXPECT_TRUE(io.ReadUntil(IoLine("a3b0d40")).ends_with(IoLine("a3b0d40")));
  Synchronise(client);
}

TEST_F(Bus, AForcedDiscoveryListsAllSixteenSlotsAsTheyAreNow) {
  std::vector<std::string> names = {"6 channel RC SERVO CONTROLLER",
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
  config.autoDiscover = "FALSE";
  StartLinked();
  TCP_CLIENT client = ConnectCae();
  EXPECT_TRUE(Answers(client, "FORCEDISCOVER", ForcedList(names)));
  EXPECT_EQ(Frames(), std::vector<std::string>{"01 30"});
  EXPECT_EQ(pauses.CountBegun(1), 2);
  rack.Remove(0);
  rack.Insert(7, sim::type::kIr);
  names[0] = "EMPTY";
  names[7] = "IR REMOTE CONTROLLER";
  EXPECT_TRUE(Answers(client, "FORCEDISCOVER", ForcedList(names)));
}

TEST_F(Bus, InputOfEachKindOfCardReachesTheIoAndMonClients) {
  config.initPollState = "TRUE";
  StartIdentified();
  TCP_CLIENT io = ConnectIo();
  TCP_CLIENT mon = ConnectMon();
  const auto expectLine = [&](const std::string& line) {
    EXPECT_TRUE(io.Receives(IoLine(line)));
    EXPECT_TRUE(mon.Receives(IoLine(line)));
  };
  ASSERT_TRUE(rack.Press(3, 6));
  expectLine("a3b0d40");
  ASSERT_TRUE(rack.Release(3, 6));
  expectLine("a3b0d00");
  ASSERT_TRUE(rack.Press(3, 15));
  expectLine("a3b1d80");
  ASSERT_TRUE(rack.Press(8, 0x12));
  expectLine("a8b0d12");
  ASSERT_TRUE(rack.Release(8, 0x12));
  expectLine("a8b0d00");
  ASSERT_TRUE(rack.Turn(8, 2));
  expectLine("a8b0d81");
  expectLine("a8b0d82");
  ASSERT_TRUE(rack.Set(0xF, 3, 0xE0));
  // The sample in which it was turned may be among older ones; in the end it is where it is.
  EXPECT_TRUE(io.ReadUntil(IoLine("aFb3dE0")).ends_with(IoLine("aFb3dE0")));
}

}  // namespace
