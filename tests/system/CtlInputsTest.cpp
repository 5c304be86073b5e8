#include "tests/support/Text.h"
#include "tests/system/CtlTest.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>

/// What looks at inputs: get, watch, wait.

namespace {

using nlohmann::json;

class CtlInputs : public CTL_TEST {
 protected:
  /// Does it, and waits until the daemon has asked the card for it, so that its last state is that.
  template <class ACTION>
  void AtRack(int card, int inputs, ACTION act) {
    ASSERT_TRUE(act());
    const std::string poll = "03 20 " + sim::ToHex(static_cast<std::uint8_t>(card)) + " " +
                             sim::ToHex(static_cast<std::uint8_t>(inputs));
    // The answer to the second is there when the third goes out.
    for (int i = 0; i < 3; ++i) {
      ASSERT_TRUE(WaitForFrame(poll, adapter.Requests().Last()));
    }
  }
  void Press(int key) {
    AtRack(3, 2, [&] { return rack.Press(3, key).ok; });
  }
  void Release(int key) {
    AtRack(3, 2, [&] { return rack.Release(3, key).ok; });
  }
  /// Its state is the average of the last six answers.
  void SetPot(int pot, int value) {
    for (int i = 0; i < 6; ++i) {
      AtRack(0xF, 6, [&] { return rack.Set(0xF, pot, value).ok; });
    }
  }
  /// Presses a key and releases it, again and again, until the program ends: what it was not
  /// greeted for it does not see. Its status.
  std::optional<int> EndOfToggling(CTL_PROCESS& process) {
    bool isDown = false;
    process.WaitUntil([&] {
      const std::uint64_t before = adapter.Requests().Last();
      isDown = !isDown;
      EXPECT_TRUE(isDown ? rack.Press(3, 6) : rack.Release(3, 6));
      WaitForFrame("03 20 03 02", before);
      return process.Ended().has_value();
    });
    return process.WaitForEnd();
  }
  /// A watch lets CAE go when it knows the cards, and what their inputs are.
  bool HasLearnt() const { return log.WaitForLine(ClosedByClient("CAE")); }
  /// Without the time ahead of each line.
  static LINES Changes(const std::string& out) {
    LINES lines = support::Lines(out);
    for (std::string& line : lines) {
      constexpr std::size_t kTime = sizeof("2026-11-22 09:12:03.123  ") - 1;
      line.erase(0, std::min(kTime, line.size()));
    }
    return lines;
  }
};

TEST_F(CtlInputs, GetTellsChannelsBlocksAndWholeCards) {
  StartRack();
  Press(6);
  Press(15);
  SetPot(2, 0x80);
  EXPECT_EQ(Out({"get", "3.6"}), "on\n");
  EXPECT_EQ(Out({"get", "3.7", "3.b1", "F.2", "3.15"}),
            "3.7: off\n3.b1: 80\nF.2: 50.2%\n3.15: on\n");
  EXPECT_EQ(Out({"get", "F"}), "F.0: 0%\nF.1: 0%\nF.2: 50.2%\nF.3: 0%\nF.4: 0%\nF.5: 0%\n");
  const LINES card = support::Lines(Out({"get", "3"}));
  ASSERT_EQ(card.size(), 16U);
  EXPECT_EQ(card[6], "3.6: on");
  EXPECT_EQ(Json({"get", "3.6", "F.2", "3.b1"}),
            (std::vector<json>{
                {{"type", "value"}, {"place", "3.6"}, {"value", "on"}, {"raw", 0x40}},
                {{"type", "value"}, {"place", "F.2"}, {"value", 50.2}, {"unit", "%"}, {"raw", 128}},
                {{"type", "value"}, {"place", "3.b1"}, {"value", "80"}, {"raw", 0x80}}}));
}

TEST_F(CtlInputs, GetAllTellsAllThatCanBeAsked) {
  StartRack();
  EXPECT_EQ(support::Lines(Out({"get", "all"})).size(), 22U);
}

TEST_F(CtlInputs, GetWorksBesideAClientOfIo) {
  StartRack();
  Press(6);
  TCP_CLIENT& io = Take(config.io);
  EXPECT_EQ(Out({"get", "3.6"}), "on\n");
  EXPECT_TRUE(io.ReadUntil("a3b0d40").ends_with("a3b0d40"));
}

TEST_F(CtlInputs, WatchTellsEachChangeOfAChannelUntilThereWereEnough) {
  StartRack();
  Press(0);
  CTL_PROCESS watch(With({{"watch", "--count", "4"}}));
  ASSERT_TRUE(HasLearnt());
  ASSERT_TRUE(rack.Press(3, 6));
  ASSERT_TRUE(watch.WaitForLines(1));
  ASSERT_TRUE(rack.Release(3, 0));
  ASSERT_TRUE(watch.WaitForLines(2));
  ASSERT_TRUE(rack.Press(8, 0x12));
  ASSERT_TRUE(watch.WaitForLines(3));
  ASSERT_TRUE(rack.Press(3, 15));
  EXPECT_EQ(watch.WaitForEnd(), 0);
  EXPECT_EQ(Changes(watch.Out()), (LINES{"3.6: on", "3.0: off", "8.key: 18", "3.15: on"}));
  EXPECT_EQ(watch.Error(), "");
}

TEST_F(CtlInputs, WatchLooksAtWhatIsNamedAndEndsAfterItsTime) {
  StartRack();
  Settings("[names]\ndoor = \"3.6\"\n");
  CTL_PROCESS watch(With({{"--json", "watch", "door", "3.b1"}}));
  ASSERT_TRUE(HasLearnt());
  ASSERT_TRUE(rack.Press(3, 0));
  ASSERT_TRUE(rack.Press(3, 6));
  ASSERT_TRUE(watch.WaitForLines(1));
  ASSERT_TRUE(rack.Press(3, 15));
  ASSERT_TRUE(watch.WaitForLines(2));
  watch.Signal(SIGKILL);
  watch.WaitForEnd();
  const LINES lines = support::Lines(watch.Out());
  ASSERT_EQ(lines.size(), 2U);
  json door = json::parse(lines[0]);
  EXPECT_EQ(door["time"].get<std::string>().size(), sizeof("2026-11-22T09:12:03.123Z") - 1);
  door.erase("time");
  EXPECT_EQ(door, (json{{"type", "change"},
                        {"place", "3.6"},
                        {"name", "door"},
                        {"value", "on"},
                        {"raw", 0x41},
                        {"line", "a3b0d41"}}));
  EXPECT_EQ(json::parse(lines[1])["place"], "3.b1");
  EXPECT_EQ(Out({"watch", "door", "--for", "0.1"}), "");
}

TEST_F(CtlInputs, WatchRawShowsTheLinesAsTheyCameAndTouchesIoAlone) {
  StartRack();
  CTL_PROCESS watch(With({{"watch", "--raw", "--count", "2"}}));
  EXPECT_EQ(EndOfToggling(watch), 0);
  EXPECT_EQ(watch.Error(), "");
  const LINES lines = support::Lines(watch.Out());
  ASSERT_EQ(lines.size(), 2U);
  std::set<std::string> both(lines.begin(), lines.end());
  EXPECT_EQ(both, (std::set<std::string>{"a3b0d00", "a3b0d40"}));
  EXPECT_EQ(Connections(config.cae), 0);
  EXPECT_EQ(Connections(config.mon), 0);
}

TEST_F(CtlInputs, WatchMonitorLeavesIoToItsClient) {
  StartRack();
  TCP_CLIENT& io = Take(config.io);
  CTL_PROCESS watch(With({{"watch", "--monitor", "--count", "2"}}));
  ASSERT_TRUE(HasLearnt());
  io.Send("a5b1dFB\r\n");  // a command to an output card is no change of an input
  ASSERT_TRUE(WaitForFrame("05 10 05 02 FF FB"));
  ASSERT_TRUE(rack.Press(8, 1));
  ASSERT_TRUE(watch.WaitForLines(1));
  ASSERT_TRUE(rack.Release(8, 1));
  EXPECT_EQ(watch.WaitForEnd(), 0);
  EXPECT_EQ(Changes(watch.Out()), (LINES{"8.key: 1", "8.key: none"}));
  EXPECT_TRUE(io.Receives("a8b0d01\r\n\ra8b0d00\r\n\r"));
}

TEST_F(CtlInputs, WatchWhoseReaderGoesAwayEndsWithoutAFault) {
  StartRack();
  CTL_PROCESS watch(With({{"watch", "3"}}));
  ASSERT_TRUE(HasLearnt());
  ASSERT_TRUE(rack.Press(3, 6));
  ASSERT_TRUE(watch.WaitForLines(1));
  watch.CloseOutput();
  EXPECT_EQ(watch.WaitForEnd(), 0);
  EXPECT_EQ(watch.Error(), "");
}

TEST_F(CtlInputs, WaitEndsAtOnceWhereItIsSoAndElseWhenItBecomesSo) {
  StartRack();
  Press(6);
  EXPECT_EQ(Out({"wait", "3.6=on"}), "");
  EXPECT_EQ(Json({"wait", "3.b0=40"}),
            std::vector<json>{
                (json{{"type", "value"}, {"place", "3.b0"}, {"value", "40"}, {"raw", 0x40}})});
  CTL_PROCESS wait(With({{"wait", "3.6=off"}}));
  EXPECT_EQ(EndOfToggling(wait), 0);
  EXPECT_EQ(wait.Out() + wait.Error(), "");
}

TEST_F(CtlInputs, WaitThatIsNotSoInItsTimeEndsWithStatus3) {
  StartRack();
  EXPECT_TRUE(
      Fails(Run({"wait", "3.6=on", "--for", "0.1"}), 3, "3.6=on is not so yet: 3.6 is off"));
}

}  // namespace
