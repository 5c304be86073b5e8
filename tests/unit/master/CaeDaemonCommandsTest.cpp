// The operator's command line: the commands for the daemon itself, for its polling and its card
// table.

#include "tests/unit/master/CaeInterpreterFixture.h"
#include "vorn/master/HelpTexts.h"

#include <array>
#include <utility>

namespace vorn {

namespace unit {
namespace {

using namespace support::cae;  // NOLINT(google-build-using-namespace): the vectors' words
using LINES = std::vector<std::string>;

// --- the daemon's own commands ------------------------------------------------------------------

TEST_F(CaeInterpreter, SpeedSetsTheDelayOfThePercentageAndEchoesTheNumberAsTyped) {
  const std::pair<const char*, std::int32_t> speeds[] = {
      {"1", 5000}, {"2", 4949}, {"10", 4545},  {"50", 2525},  {"75", 1263},    {"98", 102},
      {"99", 51},  {"100", 1},  {"050", 2525}, {" 50", 2525}, {"50abc", 2525}, {"60=70", 2020}};
  for (const auto& [typed, delayUs] : speeds) {
    SCOPED_TRACE(typed);
    daemon.delaysUs.clear();
    EXPECT_EQ(Answer(std::string("SPEED=") + typed + "\r\n"),
              Handled({std::string("CIA: SPEED IS SET to ") + typed + "%"}));
    EXPECT_EQ(daemon.delaysUs, std::vector<std::int32_t>({delayUs}));
  }
}

TEST_F(CaeInterpreter, SpeedOutOfRangeIsRefusedAndChangesNothing) {
  // 2 to the 32nd and 50; 2 to the 64th and 50.
  for (const char* const typed : {"0", "101", "-1", "-50", "", "abc", "x50", "1000", "99999999999",
                                  "-99999999999", "4294967346", "18446744073709551666"}) {
    SCOPED_TRACE(typed);
    EXPECT_EQ(Answer(std::string("SPEED=") + typed + "\r\n"), Handled({kOutOfRange}));
  }
  EXPECT_TRUE(daemon.delaysUs.empty());
}

TEST_F(CaeInterpreter, SpeedNeedsNoSeparator) {
  EXPECT_EQ(Answer("SPEED"), kUnknownReply);
  EXPECT_EQ(Answer("SPEED="), Handled({kOutOfRange}));
  EXPECT_EQ(Answer("SPEED=5"), Handled({"CIA: SPEED IS SET to 5%"}));
  EXPECT_EQ(Answer("SPEED=50\r"), Handled({"CIA: SPEED IS SET to 50%"}));
}

TEST_F(CaeInterpreter, ExitSaysFarewellWaitsASecondClosesAndLeavesThePromptForTheNextClient) {
  LINES beforeClose;
  daemon.onClose = [&] {
    EXPECT_EQ(daemon.pauses, std::vector<int>({1}));
    beforeClose = TakeAll(output);
  };
  EXPECT_EQ(Answer("EXIT\r\n"), LINES({">\r\n"}));
  EXPECT_EQ(beforeClose, LINES({"VORN: Bye Bye...\r\n"}));
  EXPECT_EQ(daemon.closings, 1);
}

TEST_F(CaeInterpreter, AnswersWithItsVersionAndItsTextsOneMessageEach) {
  EXPECT_EQ(Answer("DRVVER\r\n"), Handled({"CIA: DRIVER VERSION 1.20"}));
  EXPECT_EQ(Answer("HELP\r\n"), Handled({QuickHelp().begin(), QuickHelp().end()}));
  EXPECT_EQ(Answer("IOEXAMPLES\r\n"), Handled({IoExamples().begin(), IoExamples().end()}));
}

// --- polling ------------------------------------------------------------------------------------

TEST_F(CaeInterpreter, SwitchesGlobalPolling) {
  for (const bool on : {true, true, false, false}) {
    EXPECT_EQ(Answer(on ? "ENABLEPOLL\r\n" : "DISABLEPOLL\r\n"),
              Handled({on ? kPollingOn : kPollingOff}));
    EXPECT_EQ(daemon.polling, on);
  }
}

TEST_F(CaeInterpreter, SwitchesTheFlagOfInputCardsOnly) {
  for (const int state : {kOutputCard, kInputCard, kNoUsableCard}) {
    for (const bool on : {true, false}) {
      for (const int before : {0, 1}) {
        cards.With(12, [&](PERIFCARD& card) {
          card.typeCode = kDigitalInput;  // the state counts, not the type
          card.stateWord = state;
          card.pollFlag = static_cast<std::uint8_t>(before);
        });
        const std::string word = on ? "POLLON" : "POLLOFF";
        const bool switched = state == kInputCard;
        EXPECT_EQ(Answer(word + ":C\r\n"),
                  Handled({switched ? "CIA: " + word + " is OK at address C" : kInput}));
        EXPECT_EQ(cards.With(12, [](const PERIFCARD& card) { return card.pollFlag; }),
                  switched ? (on ? 1 : 0) : before);
      }
    }
  }
  ExpectNothingElse();
}

TEST_F(CaeInterpreter, ListsThePollingStateOfInputCardsOnly) {
  EXPECT_EQ(Answer("POLLSTATE\r\n"), Handled({kPollingOff}));
  daemon.polling = true;
  EXPECT_EQ(Answer("POLLSTATE\r\n"), Handled({kPollingOn}));
  for (std::size_t slot = 0; slot < 17; ++slot) {
    cards.With(slot, [slot](PERIFCARD& card) {
      card.stateWord = slot % 5 == 0 || slot == 16 ? 1 : slot % 5 == 1 ? 0 : 3;
      card.pollFlag = slot < 8 ? 1 : 0;
    });
  }
  EXPECT_EQ(Answer("POLLSTATE\r\n"),
            Handled({kPollingOn, "PTI:0x0:ON", "PTI:0x5:ON", "PTI:0xA:OFF", "PTI:0xF:OFF"}));
}

// --- the last input state -----------------------------------------------------------------------

TEST_F(CaeInterpreter, SendsTheLastInputStateOfTheBlocksThatACardHasAsCardInput) {
  for (std::size_t i = 0; i < 16; ++i) {
    cards.With(3,
               [i](PERIFCARD& card) { card.values.at(i) = static_cast<std::uint8_t>(0xA0 + i); });
  }
  for (int type = 0; type <= 255; ++type) {
    SCOPED_TRACE(type);
    SetType(3, type);
    const INPUT_CARD* const card = FindInputCard(type);
    const std::size_t blocks = card == nullptr ? 0 : card->blocks;
    for (const char block : std::string("0123456789ABCDEF")) {
      const bool has = HexCharToByte(block) < blocks;
      ASSERT_EQ(Answer(std::string("GETLASTINPST:3=") + block + "\r\n"),
                Handled({has           ? kSent
                         : blocks == 0 ? kReporting
                                       : kNoBlock}));
      ASSERT_EQ(TakeAll(inputLines),
                has ? LINES({std::string("a3b") + block + "dA" + block}) : LINES());
    }
  }
  // A missing or bad block digit is block 0.
  SetType(3, 4);
  EXPECT_EQ(Answer("GETLASTINPST:3\r\n"), Handled({kSent}));
  EXPECT_EQ(Answer("GETLASTINPST:3=x\r\n"), Handled({kSent}));
  EXPECT_EQ(TakeAll(inputLines), LINES({"a3b0dA0", "a3b0dA0"}));
  ExpectNothingElse();
}

// --- discovery ----------------------------------------------------------------------------------

LINES Listing(const std::string& title, const std::string& cardThree) {
  std::array<std::string, 16> names;
  names.fill("EMPTY");
  names[3] = cardThree;
  return CardList(title, names);
}

TEST_F(CaeInterpreter, ListsAllSixteenSlotsEmptyOnesIncluded) {
  EXPECT_EQ(Answer("DISCOVER\r\n"), Handled(Listing("DISCOVER LIST:", "EMPTY")));
  cards.With(3, [](PERIFCARD& card) { card.SetName("16 channel DIGITAL INPUT"); });
  EXPECT_EQ(Answer("DISCOVER\r\n"), Handled(Listing("DISCOVER LIST:", "16 channel DIGITAL INPUT")));
  ExpectNothingElse();
}

TEST_F(CaeInterpreter, ForcedDiscoveryClearsTheTableWithPollingOffAndAsksTheBus) {
  for (const bool polling : {true, false}) {
    SCOPED_TRACE(polling);
    daemon.polling = polling;
    daemon.pauses.clear();
    for (std::size_t slot = 0; slot < 16; ++slot) {
      cards.With(slot, [](PERIFCARD& card) { card.SetName("stale"); });
    }
    daemon.duringPause = [&](std::size_t number) {
      EXPECT_FALSE(daemon.polling);
      EXPECT_TRUE(output.IsEmpty());
      const std::string name =
          cards.With(15, [](const PERIFCARD& card) { return std::string(card.name.data()); });
      if (number == 1) {  // frames already queued drain
        EXPECT_EQ(name, "stale");
        EXPECT_TRUE(generalQueue.IsEmpty());
      } else {
        EXPECT_EQ(name, "EMPTY");
        EXPECT_EQ(ToHex(generalQueue.DeQueue()), "30");
        EXPECT_TRUE(generalQueue.IsEmpty());
        cards.With(3, [](PERIFCARD& card) { card.SetName("KEYMX and ROTE CONTROLLER"); });
      }
    };
    // Cards that do not answer in time are listed as empty.
    EXPECT_EQ(Answer("FORCEDISCOVER\r\n"),
              Handled(Listing("FORCED DISCOVER LIST:", "KEYMX and ROTE CONTROLLER")));
    EXPECT_EQ(daemon.pauses, std::vector<int>({1, 1}));
    EXPECT_EQ(daemon.polling, polling);
  }
}

}  // namespace
}  // namespace unit

}  // namespace vorn
