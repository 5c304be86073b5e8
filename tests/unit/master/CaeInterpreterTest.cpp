// The operator's command line: each command's frame, replies and refusals.

#include "tests/support/CaeVectors.h"
#include "tests/support/unit/Bytes.h"
#include "tests/unit/master/DaemonDouble.h"
#include "vorn/master/CaeInterpreter.h"
#include "vorn/master/HelpTexts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <set>

namespace vorn {

namespace unit {
namespace {

using namespace support::cae;  // NOLINT(google-build-using-namespace): the vectors' words
using LINES = std::vector<std::string>;

const LINES kUnknownReply = {std::string(kUnknown) + "\r\n>\r\n"};

class CaeInterpreter : public testing::Test {
 protected:
  CaeInterpreter() { Make("\r\n", "\r\n"); }

  void Make(const std::string& inpSeparator, const std::string& outSeparator) {
    INTERFACE_DESCRIPTOR descriptor;
    descriptor.inpSeparator = inpSeparator;
    descriptor.outSeparator = outSeparator;
    interpreter = std::make_unique<CAE_INTERPRETER>(
        descriptor, output, [this](QList body) { generalQueue.ToQueue(std::move(body)); },
        inputLines, cards, daemon);
  }

  /// Takes what waits in a queue, message by message, as it would go out.
  static LINES TakeAll(VOQUEUE& queue) {
    LINES messages;
    while (!queue.IsEmpty()) {
      const QList message = queue.DeQueue();
      messages.emplace_back(message.begin(), message.end());
    }
    return messages;
  }

  LINES Answer(const std::string& text) {
    interpreter->InterpretCaeCommand(text);
    return TakeAll(output);
  }

  /// The replies of a recognised command: each with its separator, and the prompt behind them.
  static LINES Handled(LINES replies) {
    replies.emplace_back(">");
    for (std::string& reply : replies) {
      reply += "\r\n";
    }
    return replies;
  }

  void SetType(std::size_t address, int typeCode) {
    cards.With(address, [typeCode](PERIFCARD& card) {
      card.typeCode = static_cast<std::uint8_t>(typeCode);
    });
  }
  void SetAllTypes(int typeCode) {
    for (std::size_t address = 0; address < bus::kAddresses; ++address) {
      SetType(address, typeCode);
    }
  }

  void SetQuery(std::size_t address, const BYTES& bytes) {
    cards.With(address, [&](PERIFCARD& card) {
      std::copy(bytes.begin(), bytes.end(), card.queryBytes.begin());
    });
  }
  BYTES Query(std::size_t address) {
    return cards.With(address, [](const PERIFCARD& card) {
      return BYTES(card.queryBytes.begin(), card.queryBytes.end());
    });
  }

  /// The bus answers: notes each body and lets the card at its address answer.
  void AnswerFromBus(const char* answer) {
    daemon.duringPause = [this, answer](std::size_t) {
      while (!generalQueue.IsEmpty()) {
        bodies.push_back(ToHex(generalQueue.DeQueue()));
        SetQuery(Hex(bodies.back()).at(1), Hex(answer));
      }
    };
  }

  /// Nothing has gone to the bus or to other clients, and nobody has waited.
  void ExpectNothingElse() {
    EXPECT_TRUE(generalQueue.IsEmpty());
    EXPECT_TRUE(inputLines.IsEmpty());
    EXPECT_TRUE(daemon.pauses.empty());
    EXPECT_EQ(daemon.closings, 0);
  }

  VOQUEUE output;
  VOQUEUE generalQueue;
  VOQUEUE inputLines;
  CARD_TABLE cards;
  DAEMON_DOUBLE daemon;
  LINES bodies;
  std::unique_ptr<CAE_INTERPRETER> interpreter;
};

/// The vectors of commands that ask a card.
std::vector<VECTOR> CardVectors() {
  std::vector<VECTOR> vectors;
  std::copy_if(std::begin(kVectors), std::end(kVectors), std::back_inserter(vectors),
               [](const VECTOR& vector) { return vector.does == DOES::kAsksCard; });
  return vectors;
}

// --- the table ----------------------------------------------------------------------------------

TEST(CaeCommands, HaveEachAVectorInTheManualsOrder) {
  LINES manual;
  for (const VECTOR& vector : kVectors) {
    if (IsFirst(vector)) {
      manual.emplace_back(vector.keyword);
    }
  }
  LINES keywords;
  for (const CAE_COMMAND& command : CaeCommands()) {
    keywords.emplace_back(command.keyword);
  }
  EXPECT_EQ(keywords, manual);
}

TEST(CaeCommands, AskForTheWholeLineOrForTheSeparatorOrForNeither) {
  for (const CAE_COMMAND& command : CaeCommands()) {
    const std::string keyword = command.keyword;
    SCOPED_TRACE(keyword);
    const MATCH match =
        std::find_if(std::begin(kVectors), std::end(kVectors), [&](const VECTOR& it) {
          return it.keyword == keyword;
        })->match;
    const bool anywhere = match == MATCH::kContains || match == MATCH::kAlone;
    const auto matches = [&](const std::string& text) { return command.Matches({text, "\r\n"}); };
    EXPECT_EQ(matches(keyword + "\r\n"), match != MATCH::kNever);
    EXPECT_EQ(matches(keyword), match == MATCH::kAlone);
    EXPECT_EQ(matches("x" + keyword + "x\r\n"), anywhere);
    EXPECT_EQ(matches("\r\n" + keyword), anywhere);
    EXPECT_FALSE(matches(keyword.substr(1) + "\r\n"));
  }
}

TEST(CaeCommands, NameAFieldForEachConversionOfTheirReplies) {
  for (const CAE_COMMAND& command : CaeCommands()) {
    for (const CAE_REPLY& reply : {command.reply, command.result}) {
      const std::string format = reply.format == nullptr ? "" : reply.format;
      std::string kinds;  // of the fields: text or number
      for (std::size_t at = 0; (at = format.find('%', at)) != std::string::npos;) {
        at = format.find_first_of("sXd%", at + 1);
        kinds += format.at(at++);
      }
      std::erase(kinds, '%');
      ASSERT_EQ(std::string(reply.fields).size(), kinds.size()) << format;
      for (std::size_t i = 0; i < kinds.size(); ++i) {
        EXPECT_NE(std::string(kinds[i] == 's' ? "xpcsn" : "xcvr").find(reply.fields[i]),
                  std::string::npos)
            << format;
      }
    }
  }
}

// --- the commands for cards ---------------------------------------------------------------------

TEST_F(CaeInterpreter, CardCommandSendsItsFrameWaitsASecondAndReportsSuccess) {
  AnswerFromBus("51 02 77 2E 88");
  for (const VECTOR& vector : CardVectors()) {
    SCOPED_TRACE(vector.line);
    daemon.pauses.clear();
    bodies.clear();
    SetType(2, vector.cardType);
    EXPECT_EQ(Answer(At(vector.line, '2') + "\r\n"), Handled(Answers(vector, '2')));
    EXPECT_EQ(bodies, LINES({At(vector.body, '2')}));
    EXPECT_EQ(daemon.pauses, std::vector<int>({1}));
    EXPECT_TRUE(inputLines.IsEmpty());
  }
}

TEST_F(CaeInterpreter, CardCommandReportsAMissingAcknowledgement) {
  for (const VECTOR& vector : CardVectors()) {
    SCOPED_TRACE(vector.line);
    SetType(2, vector.cardType);
    for (const char* const answer : {"", "50 02 01 01", "71 02", "00 51"}) {
      SCOPED_TRACE(answer);
      bodies.clear();
      SetQuery(2, Hex("51 02 01 01"));  // of an earlier command; must not count
      AnswerFromBus(answer);
      EXPECT_EQ(Answer(At(vector.line, '2') + "\r\n"), Handled({vector.failure}));
      EXPECT_EQ(bodies, LINES({At(vector.body, '2')}));
    }
  }
}

TEST_F(CaeInterpreter, CardCommandZeroesAllQueryBytesBeforeItWaits) {
  for (const VECTOR& vector : CardVectors()) {
    SCOPED_TRACE(vector.line);
    SetType(2, vector.cardType);
    SetQuery(2, BYTES(16, 0x51));
    BYTES seen;
    daemon.duringPause = [&](std::size_t) { seen = Query(2); };
    Answer(At(vector.line, '2') + "\r\n");
    EXPECT_EQ(ToHex(seen), ToHex(BYTES(16, 0)));
  }
}

TEST_F(CaeInterpreter, CardCommandIsRefusedForEveryOtherCardAndSendsNothing) {
  SetQuery(2, BYTES(16, 0x51));
  for (const VECTOR& vector : CardVectors()) {
    SCOPED_TRACE(vector.line);
    for (int type = 0; type <= 255 && vector.refusal != nullptr; ++type) {
      if (type != vector.cardType) {
        SetType(2, type);
        ASSERT_EQ(Answer(At(vector.line, '2') + "\r\n"), Handled({vector.refusal})) << type;
      }
    }
  }
  ExpectNothingElse();
  EXPECT_EQ(Query(2), BYTES(16, 0x51));
}

TEST_F(CaeInterpreter, CardCommandAddressesEachOfTheSixteenCards) {
  AnswerFromBus("51");
  for (const char digit : std::string("0123456789ABCDEF")) {
    bodies.clear();
    EXPECT_EQ(Answer(At("REBOOT:@\r\n", digit)),
              Handled({"CIA: Card is REBOOTED", At("RBT:0x@:OK", digit)}));
    EXPECT_EQ(bodies, LINES({At("50 0@ 01 AB", digit)}));
  }
}

/// Bad digits and missing ones count as zero; what is echoed, is as it was typed.
TEST_F(CaeInterpreter, CardCommandMakesTheBestOfALine) {
  struct ODD {
    int cardType;  // of all cards
    const char* line;
    const char* body;
    const char* last;  // the last answer
  };
  const ODD odds[] = {
      {7, "STOREANMASK:a\r\n", "50 00 01 02", "CIA: MASK IS STORED at address a"},
      {7, "STOREANMASK:f\r\n", "50 00 01 02", "CIA: MASK IS STORED at address f"},
      {7, "STOREANMASK:G\r\n", "50 00 01 02", "CIA: MASK IS STORED at address G"},
      {7, "STOREANMASK: \r\n", "50 00 01 02", "CIA: MASK IS STORED at address  "},
      {7, "STOREANMASK:%s\r\n", "50 00 01 02", "CIA: MASK IS STORED at address %"},
      {7, "\r\nSTOREANMASK:", "50 00 01 02", "CIA: MASK IS STORED at address "},
      {7, "SETANMASK:2=3f\r\n", "50 02 01 01 30", "AMS:0x2:0x30"},
      {7, "SETANMASK:2=f3\r\n", "50 02 01 01 03", "AMS:0x2:0x03"},
      {7, "SETANMASK:2=zz\r\n", "50 02 01 01 00", "AMS:0x2:0x00"},
      {7, "SETANMASK:2=-1\r\n", "50 02 01 01 01", "AMS:0x2:0x01"},
      {7, "SETANMASK:2==9\r\n", "50 02 01 01 09", "AMS:0x2:0x09"},
      {7, "5:SETANMASK:2=11\r\n", "50 00 01 01 11", "AMS:0x0:0x11"},  // no channel is added
      {9, "5:\r\nLCDSELFTEST:=ON", "50 00 01 01 FF",
       "CIA: SELFTEST STATE IS SET TO ON at address \r"},
      {5, "SETSC\r\n", "50 00 01 C0 00", "SPS:0x0:SC:0x00"},
      {5, "SETSCB3\r\n", "50 00 01 C0 00", "SPS:0x0:SC:0x00"},
      {5, "SETSCB3:\r\n", "50 00 01 D3 00", "SPS:0x0:SCB3:0x00"},
      {5, "\r\nSETSCB3:", "50 00 01 D3 00", "SPS:0x0:SCB3:0x00"},
      {5, "SETSCB3:2\r\n", "50 02 01 D3 00", "SPS:0x2:SCB3:0x00"},
      {5, "\r\nSETSCB3:2=", "50 02 01 D3 00", "SPS:0x2:SCB3:0x00"},
      {5, "SETSCB3:2=7\r\n", "50 02 01 D3 70", "SPS:0x2:SCB3:0x70"},
      {5, "\r\nSETSCB3:2=7", "50 02 01 D3 70", "SPS:0x2:SCB3:0x70"},
      {5, "SETSCAF:2=11\r\n", "50 02 01 CF 11", "SPS:0x2:SCAF:0x11"},
      {5, "SETSCb2:2=11\r\n", "50 02 01 C2 11", "SPS:0x2:SCb2:0x11"},
      {5, ":0GETSC\r\n", "50 00 40 21", "SPG:0x0:SC:0x1C"},
      {6, "STOREMSRS\r\n", "50 00 01 CD", "CIA: MSR values are STORED at address "},
      {6, "GETMSRA:6\r\n", "50 06 40 0B", "MSR10:0x6:0x1C"},
      {6, "GETMSRx:6\r\n", "50 06 40 01", "MSR0:0x6:0x1C"},
      {6, "SETMSRx:1=02\r\n", "50 01 01 C0 02", "MPS:0x1:MSRx:0x02"},
      {6, "SETMSRB:1=02\r\n", "50 01 01 CB 02", "MPS:0x1:MSRB:0x02"},  // B is a channel here
      {6, "SETMSRB2:1=02\r\n", "50 01 01 C2 02", "MPS:0x1:MSR2:0x02"},
      {0, "REBOOT:5\r\n", "50 05 01 AB", "RBT:0x5:OK"},  // an empty slot
      {0, "please REBOOT:5 now\r\n", "50 05 01 AB", "RBT:0x5:OK"},
      {0, "DRVVER\r\nREBOOT:5\r\n", "50 05 01 AB", "RBT:0x5:OK"},
      {0, "REBOOT:7\r\nREBOOT:2\r\n", "50 07 01 AB", "RBT:0x7:OK"},
  };
  AnswerFromBus("51 06 00 1C");
  for (const ODD& odd : odds) {
    SCOPED_TRACE(odd.line);
    bodies.clear();
    SetAllTypes(odd.cardType);
    const LINES answer = Answer(odd.line);
    ASSERT_GE(answer.size(), 2U);
    EXPECT_EQ(answer[answer.size() - 2], std::string(odd.last) + "\r\n");
    EXPECT_EQ(answer.back(), ">\r\n");
    EXPECT_EQ(bodies, LINES({odd.body}));
  }
}

TEST_F(CaeInterpreter, AStateThatIsNeitherOnNorOffKeepsTheCommandsLastOneAndIsEchoed) {
  struct STEP {
    const char* line;
    const char* echoed;
    const char* body;
  };
  const STEP steps[] = {
      {"LCDSELFTEST:E=XY", "XY", "50 0E 01 01 00"},
      {"LCDINITLIGHT:E=XY", "XY", "50 0E 01 02 00"},
      {"LCDSELFTEST:E=ON", "ON", "50 0E 01 01 FF"},
      {"LCDSELFTEST:E=on", "on", "50 0E 01 01 FF"},
      {"LCDINITLIGHT:E=of", "of", "50 0E 01 02 00"},
      {"LCDINITLIGHT:E=ONLY", "ON", "50 0E 01 02 FF"},
      {"LCDSELFTEST:E=OF", "OFF", "50 0E 01 01 00"},
      {"LCDSELFTEST:E=01", "01", "50 0E 01 01 00"},
      {"LCDINITLIGHT:E=01", "01", "50 0E 01 02 FF"},
      {"LCDINITLIGHT:E", "", "50 0E 01 02 FF"},
  };
  SetType(14, 9);
  AnswerFromBus("51");
  for (const STEP& step : steps) {
    SCOPED_TRACE(step.line);
    bodies.clear();
    const std::string name = step.line[3] == 'S' ? "SELFTEST" : "INITLIGHT";
    EXPECT_EQ(Answer(std::string(step.line) + "\r\n"),
              Handled({"CIA: " + name + " STATE IS SET TO " + step.echoed + " at address E"}));
    EXPECT_EQ(bodies, LINES({step.body}));
  }
}

// --- recognition --------------------------------------------------------------------------------

TEST_F(CaeInterpreter, UnknownCommandGetsOneMessageThatCarriesItsPrompt) {
  for (const char* const text :
       {"", "\r\n", "X\r\n", "drvver\r\n", "help\r\n", "DRVVER \r\n", " DRVVER\r\n", "DRVVER\n",
        "reboot:5\r\n", "DRVVER\r\n\r\n", "SPEED\r\n", "POLLON\r\n", "VALAMI\r\n", "%s%n\r\n",
        "DRVVER\r\nHELP\r\n", "CIE: Command ERROR\r\n"}) {
    SCOPED_TRACE(text);
    EXPECT_EQ(Answer(text), kUnknownReply);
  }
  ExpectNothingElse();
}

TEST_F(CaeInterpreter, EveryCommandCutAnywhereIsUnknownAndDoesNothing) {
  for (const VECTOR& vector : kVectors) {
    const std::string whole = At(vector.line, '2') + "\r\n";
    for (std::size_t length = 0; length < whole.size() && vector.match != MATCH::kAlone; ++length) {
      EXPECT_EQ(Answer(whole.substr(0, length)), kUnknownReply) << whole.substr(0, length);
    }
  }
  ExpectNothingElse();
}

TEST_F(CaeInterpreter, EveryCommandCutAnywhereWithItsSeparatorEndsWithOnePrompt) {
  AnswerFromBus("51");
  for (const VECTOR& vector : CardVectors()) {
    SetType(0, vector.cardType);
    SetType(2, vector.cardType);
    const std::string line = At(vector.line, '2');
    for (std::size_t length = 0; length <= line.size(); ++length) {
      const std::string cut = line.substr(0, length);
      SCOPED_TRACE(cut);
      bodies.clear();
      const LINES answer = Answer(cut + "\r\n");
      if (cut.find(vector.keyword) == std::string::npos) {
        EXPECT_EQ(answer, kUnknownReply);
        EXPECT_TRUE(bodies.empty());
        continue;
      }
      EXPECT_EQ(answer.back(), ">\r\n");
      EXPECT_EQ(answer.size(), Answers(vector, '2').size() + 1);
      ASSERT_EQ(bodies.size(), 1U);
      const BYTES body = Hex(bodies[0]);
      EXPECT_EQ(body.size(), Hex(At(vector.body, '2')).size());
      EXPECT_EQ(body[0], 0x50);
      EXPECT_EQ(body[1], length > line.find(':') + 1 ? 2 : 0);
    }
  }
}

TEST_F(CaeInterpreter, TwoParameterCommandsInOneReadRunOnceEachInTheTablesOrderOnTheFirstColon) {
  SetType(7, 7);
  SetType(2, 5);
  AnswerFromBus("51 07 00 3C");
  EXPECT_EQ(Answer("GETANMASK:7\r\nREBOOT:2\r\n"),
            Handled({"CIA: Card is REBOOTED", "RBT:0x7:OK", "CIA: MASK is GOT from card",
                     "AMV:0x7:0x3C"}));
  EXPECT_EQ(bodies, LINES({"50 07 01 AB", "50 07 40 01"}));
  // The second is for a servo card, but the first ":" names card 7; the first "=" is its value.
  EXPECT_EQ(Answer("SETANMASK:7=11\r\nSETSCA1:2=22\r\n"),
            Handled({"CIA: Channel MASK of the card is SET", "AMS:0x7:0x11", kServo}));
}

TEST_F(CaeInterpreter, UsesTheConfiguredSeparators) {
  Make(";", "<>");
  EXPECT_EQ(Answer("DRVVER;"), LINES({"CIA: DRIVER VERSION 1.20<>", "><>"}));
  EXPECT_EQ(Answer("DRVVER\r\n"), LINES({"CIE: UNKNOWN COMMAND <>><>"}));
  EXPECT_EQ(Answer("SPEED=50;7"), LINES({"CIA: SPEED IS SET to 50%<>", "><>"}));
  Make("", "");
  EXPECT_EQ(Answer("DRVVER"), LINES({"CIA: DRIVER VERSION 1.20", ">"}));
  EXPECT_EQ(Answer("SPEED=50"), LINES({"CIA: SPEED IS SET to 50%", ">"}));
  EXPECT_EQ(Answer("X"), LINES({"CIE: UNKNOWN COMMAND >"}));
}

TEST_F(CaeInterpreter, RunsItsCommandsWithoutAnAnswerWhileMuted) {
  interpreter->Mute(true);
  EXPECT_EQ(Answer("ENABLEPOLL\r\n"), LINES());
  EXPECT_TRUE(daemon.polling);
  EXPECT_EQ(Answer("NONSENSE\r\n"), LINES());
  interpreter->Mute(false);
  EXPECT_EQ(Answer("NONSENSE\r\n"), kUnknownReply);
}

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
