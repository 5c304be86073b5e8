// The operator's command line: each command's frame, replies and refusals.

#include "tests/support/GoldenHelp.h"
#include "tests/support/unit/Bytes.h"
#include "tests/unit/master/DaemonDouble.h"
#include "vorn/master/CAE_INTERPRETER.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <set>

namespace unit {
namespace {

using LINES = std::vector<std::string>;

constexpr const char* kUnknown = "CIE: UNKNOWN COMMAND \r\n>\r\n";

/// A command for a card, with all that passes between operator, daemon and card.
struct CARD_VECTOR {
  const char* keyword;
  const char* line;  // without the separator; the card's address is 2
  int cardType;      // -1: any
  const char* body;
  const char* answer;  // the card's query bytes
  LINES success;
  const char* failure;
  const char* wrongCard;  // null where any card will do
};

const std::vector<CARD_VECTOR>& CardVectors() {
  static const char* const kLcd = "CIE: THIS COMMAND IS VALID FOR LCD CONTROL CARD ONLY";
  static const char* const kAnalogue = "CIE: THIS COMMAND IS VALID ON ANALOG INPUT CARD ONLY";
  static const char* const kServo = "CIE: THIS COMMAND IS VALID ON SERVO CONTROLLER CARD ONLY";
  static const char* const kMotor = "CIE: THIS COMMAND IS VALID ON DC MOTOR CONTROLLER CARD ONLY";
  // clang-format off
  static const std::vector<CARD_VECTOR> kVectors = {
      {"LCDSELFTEST:", "LCDSELFTEST:2=ON", 9, "50 02 01 01 FF", "51 02",
       {"CIA: SELFTEST STATE IS SET TO ON at address 2"}, "CIE: STATE WRITE ERROR", kLcd},
      {"LCDSELFTEST:", "LCDSELFTEST:2=OFF", 9, "50 02 01 01 00", "51 02",
       {"CIA: SELFTEST STATE IS SET TO OFF at address 2"}, "CIE: STATE WRITE ERROR", kLcd},
      {"LCDINITLIGHT:", "LCDINITLIGHT:2=ON", 9, "50 02 01 02 FF", "51 02",
       {"CIA: INITLIGHT STATE IS SET TO ON at address 2"}, "CIE: STATE WRITE ERROR", kLcd},
      {"LCDINITLIGHT:", "LCDINITLIGHT:2=OFF", 9, "50 02 01 02 00", "51 02",
       {"CIA: INITLIGHT STATE IS SET TO OFF at address 2"}, "CIE: STATE WRITE ERROR", kLcd},
      {"REBOOT:", "REBOOT:2", -1, "50 02 01 AB", "51 02",
       {"CIA: Card is REBOOTED", "RBT:0x2:OK"}, "CIE: BUS WRITE ERROR", nullptr},
      {"SETANMASK:", "SETANMASK:2=3F", 7, "50 02 01 01 3F", "51 02",
       {"CIA: Channel MASK of the card is SET", "AMS:0x2:0x3F"}, "CIE: MASK WRITE ERROR", kAnalogue},
      {"GETANMASK:", "GETANMASK:2", 7, "50 02 40 01", "51 02 77 0A 88",
       {"CIA: MASK is GOT from card", "AMV:0x2:0x0A"}, "CIE: MASK READ ERROR", kAnalogue},
      {"STOREANMASK:", "STOREANMASK:2", 7, "50 02 01 02", "51 02",
       {"CIA: MASK IS STORED at address 2"}, "CIE: MASK STORE ERROR", kAnalogue},
      {"STORESRVPOS:", "STORESRVPOS:2", 5, "50 02 01 74", "51 02",
       {"CIA: POSITIONS ARE STORED at address 2"}, "CIE: POSITION STORING ERROR", kServo},
      {"MOVESTRPOS:", "MOVESTRPOS:2", 5, "50 02 01 3F", "51 02",
       {"CIA: SERVOS ARE MOVED TO STORED POSITIONS at address 2"}, "CIE: POSITIONS MOVING ERROR",
       "CIE: THIS COMMAND IS LEGAL ON SERVO CONTROLLER CARD ONLY"},
      {"SETSC", "SETSCA5:2=01", 5, "50 02 01 C5 01", "51 02",
       {"CIA: SERVO PARAM of the card is SET", "SPS:0x2:SCA5:0x01"}, "CIE: PARAM WRITE ERROR", kServo},
      {"SETSC", "SETSCB3:2=7F", 5, "50 02 01 D3 7F", "51 02",
       {"CIA: SERVO PARAM of the card is SET", "SPS:0x2:SCB3:0x7F"}, "CIE: PARAM WRITE ERROR", kServo},
      {"SETSC", "SETSCX3:2=7F", 5, "50 02 01 C3 7F", "51 02",
       {"CIA: SERVO PARAM of the card is SET", "SPS:0x2:SCX3:0x7F"}, "CIE: PARAM WRITE ERROR", kServo},
      {"GETSC", "GETSCA0:2", 5, "50 02 40 21", "51 02 00 FE",
       {"CIA: SERVO PARAM is GOT from card", "SPG:0x2:SCA0:0xFE"}, "CIE: PARAM READ ERROR", kServo},
      {"GETSC", "GETSCA5:2", 5, "50 02 40 26", "51 02 00 0E",
       {"CIA: SERVO PARAM is GOT from card", "SPG:0x2:SCA5:0x0E"}, "CIE: PARAM READ ERROR", kServo},
      {"GETSC", "GETSCB5:2", 5, "50 02 40 2C", "51 02 00 00",
       {"CIA: SERVO PARAM is GOT from card", "SPG:0x2:SCB5:0x00"}, "CIE: PARAM READ ERROR", kServo},
      {"SETMSR", "SETMSR2:2=20", 6, "50 02 01 C2 20", "51 02",
       {"CIA: MSR value of the card is SET", "MPS:0x2:MSR2:0x20"}, "CIE: PARAM WRITE ERROR", kMotor},
      {"GETMSR", "GETMSR1:2", 6, "50 02 40 02", "51 02 00 1F",
       {"CIA: MSR value is GOT from card", "MSR1:0x2:0x1F"}, "CIE: PARAM READ ERROR", kMotor},
      {"STOREMSRS", "STOREMSRS:2", 6, "50 02 01 CD", "51 02",
       {"CIA: MSR values are STORED at address 2"}, "CIE: MSR STORING ERROR", kMotor},
  };
  // clang-format on
  return kVectors;
}

/// Commands that have a test of their own below.
const std::set<std::string>& OtherCommands() {
  static const std::set<std::string> kOthers = {
      "VALAMI",   "SPEED=",        "DISABLEPOLL", "DRVVER",    "POLLON:",
      "POLLOFF:", "ENABLEPOLL",    "POLLSTATE",   "DISCOVER",  "FORCEDISCOVER",
      "EXIT",     "GETLASTINPST:", "HELP",        "IOEXAMPLES"};
  return kOthers;
}

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

  VOQUEUE output;
  VOQUEUE generalQueue;
  VOQUEUE inputLines;
  CARD_TABLE cards;
  DAEMON_DOUBLE daemon;
  LINES bodies;
  std::unique_ptr<CAE_INTERPRETER> interpreter;
};

// --- the table ----------------------------------------------------------------------------------

TEST_F(CaeInterpreter, HasAVectorForEveryCommand) {
  std::set<std::string> tested = OtherCommands();
  for (const CARD_VECTOR& vector : CardVectors()) {
    tested.insert(vector.keyword);
  }
  std::set<std::string> commands;
  for (const CAE_COMMAND& command : CaeCommands()) {
    commands.insert(command.keyword);
  }
  EXPECT_EQ(commands, tested);
}

TEST_F(CaeInterpreter, RunsItsCommandsWithoutAnAnswerWhileMuted) {
  interpreter->Mute(true);
  EXPECT_EQ(Answer("ENABLEPOLL\r\n"), LINES());
  EXPECT_TRUE(daemon.polling);
  EXPECT_EQ(Answer("NONSENSE\r\n"), LINES());
  interpreter->Mute(false);
  EXPECT_EQ(Answer("NONSENSE\r\n"), LINES({kUnknown}));
}

// --- the commands for cards ---------------------------------------------------------------------

TEST_F(CaeInterpreter, CardCommandSendsItsFrameWaitsASecondAndReportsSuccess) {
  for (const CARD_VECTOR& vector : CardVectors()) {
    SCOPED_TRACE(vector.line);
    daemon.pauses.clear();
    bodies.clear();
    SetType(2, vector.cardType);
    AnswerFromBus(vector.answer);
    EXPECT_EQ(Answer(std::string(vector.line) + "\r\n"), Handled(vector.success));
    EXPECT_EQ(bodies, LINES({vector.body}));
    EXPECT_EQ(daemon.pauses, std::vector<int>({1}));
    EXPECT_TRUE(inputLines.IsEmpty());
  }
}

TEST_F(CaeInterpreter, CardCommandReportsAMissingAcknowledgement) {
  for (const CARD_VECTOR& vector : CardVectors()) {
    SCOPED_TRACE(vector.line);
    SetType(2, vector.cardType);
    for (const char* const answer : {"", "50 02 01 01", "71 02", "00 51"}) {
      SCOPED_TRACE(answer);
      bodies.clear();
      SetQuery(2, Hex("51 02 01 01"));  // of an earlier command; must not count
      AnswerFromBus(answer);
      EXPECT_EQ(Answer(std::string(vector.line) + "\r\n"), Handled({vector.failure}));
      EXPECT_EQ(bodies, LINES({vector.body}));
    }
  }
}

TEST_F(CaeInterpreter, CardCommandZeroesAllQueryBytesBeforeItWaits) {
  for (const CARD_VECTOR& vector : CardVectors()) {
    SCOPED_TRACE(vector.line);
    SetType(2, vector.cardType);
    SetQuery(2, BYTES(16, 0x51));
    BYTES seen;
    daemon.duringPause = [&](std::size_t) { seen = Query(2); };
    Answer(std::string(vector.line) + "\r\n");
    EXPECT_EQ(ToHex(seen), ToHex(BYTES(16, 0)));
    TakeAll(generalQueue);
  }
}

TEST_F(CaeInterpreter, CardCommandIsRefusedForEveryOtherCardAndSendsNothing) {
  for (const CARD_VECTOR& vector : CardVectors()) {
    if (vector.wrongCard == nullptr) {
      continue;
    }
    SCOPED_TRACE(vector.line);
    SetQuery(2, BYTES(16, 0x51));
    for (int type = 0; type <= 255; ++type) {
      if (type == vector.cardType) {
        continue;
      }
      SetType(2, type);
      ASSERT_EQ(Answer(std::string(vector.line) + "\r\n"), Handled({vector.wrongCard})) << type;
    }
    EXPECT_TRUE(generalQueue.IsEmpty());
    EXPECT_TRUE(daemon.pauses.empty());
    EXPECT_EQ(Query(2), BYTES(16, 0x51));
  }
}

TEST_F(CaeInterpreter, CardCommandAddressesEachOfTheSixteenCards) {
  constexpr const char* kDigits = "0123456789ABCDEF";
  AnswerFromBus("51");
  for (std::size_t address = 0; address < 16; ++address) {
    bodies.clear();
    const std::string digit(1, kDigits[address]);
    EXPECT_EQ(Answer("REBOOT:" + digit + "\r\n"),
              Handled({"CIA: Card is REBOOTED", "RBT:0x" + digit + ":OK"}));
    EXPECT_EQ(bodies, LINES({"50 0" + digit + " 01 AB"}));
  }
}

TEST_F(CaeInterpreter, CardCommandWithABadAddressSelectsCardZeroAndEchoesWhatWasTyped) {
  SetType(0, 7);
  AnswerFromBus("51");
  for (const char* const typed : {"a", "f", "g", "G", "x", " ", "="}) {
    bodies.clear();
    EXPECT_EQ(Answer(std::string("STOREANMASK:") + typed + "\r\n"),
              Handled({std::string("CIA: MASK IS STORED at address ") + typed}));
    EXPECT_EQ(bodies, LINES({"50 00 01 02"}));
  }
}

TEST_F(CaeInterpreter, CardCommandTakesBadDigitsOfAValueAsZero) {
  SetType(2, 7);
  AnswerFromBus("51");
  const std::pair<const char*, const char*> values[] = {{"3f", "30"}, {"f3", "03"}, {"zz", "00"},
                                                        {"-1", "01"}, {" F", "0F"}, {"=9", "09"}};
  for (const auto& [typed, value] : values) {
    bodies.clear();
    EXPECT_EQ(Answer(std::string("SETANMASK:2=") + typed + "\r\n"),
              Handled({"CIA: Channel MASK of the card is SET", std::string("AMS:0x2:0x") + value}));
    EXPECT_EQ(bodies, LINES({std::string("50 02 01 01 ") + value}));
  }
}

TEST_F(CaeInterpreter, CardCommandWithMissingCharactersTakesThemAsZero) {
  struct CUT {
    const char* line;
    const char* body;
    const char* result;
  };
  const CUT cuts[] = {
      {"SETSC\r\n", "50 00 01 C0 00", "SPS:0x0:SC:0x00"},
      {"SETSCB\r\n", "50 00 01 C0 00", "SPS:0x0:SC:0x00"},
      {"SETSCB3\r\n", "50 00 01 C0 00", "SPS:0x0:SC:0x00"},
      {"SETSCB3:\r\n", "50 00 01 D3 00", "SPS:0x0:SCB3:0x00"},
      {"\r\nSETSCB3:", "50 00 01 D3 00", "SPS:0x0:SCB3:0x00"},
      {"SETSCB3:2\r\n", "50 02 01 D3 00", "SPS:0x2:SCB3:0x00"},
      {"\r\nSETSCB3:2", "50 02 01 D3 00", "SPS:0x2:SCB3:0x00"},
      {"SETSCB3:2=\r\n", "50 02 01 D3 00", "SPS:0x2:SCB3:0x00"},
      {"\r\nSETSCB3:2=", "50 02 01 D3 00", "SPS:0x2:SCB3:0x00"},
      {"SETSCB3:2=7\r\n", "50 02 01 D3 70", "SPS:0x2:SCB3:0x70"},
      {"\r\nSETSCB3:2=7", "50 02 01 D3 70", "SPS:0x2:SCB3:0x70"},
      {"\r\nSETSCB3:2=7F", "50 02 01 D3 7F", "SPS:0x2:SCB3:0x7F"},
  };
  SetType(0, 5);
  SetType(2, 5);
  AnswerFromBus("51");
  for (const CUT& cut : cuts) {
    SCOPED_TRACE(cut.line);
    bodies.clear();
    EXPECT_EQ(Answer(cut.line), Handled({"CIA: SERVO PARAM of the card is SET", cut.result}));
    EXPECT_EQ(bodies, LINES({cut.body}));
  }
}

TEST_F(CaeInterpreter, StoringSilentRangesNeedsNoColon) {
  SetType(0, 6);
  AnswerFromBus("51");
  EXPECT_EQ(Answer("STOREMSRS\r\n"), Handled({"CIA: MSR values are STORED at address "}));
  EXPECT_EQ(bodies, LINES({"50 00 01 CD"}));
}

TEST_F(CaeInterpreter, ReadingASilentRangeShowsTheChannelAsANumber) {
  SetType(6, 6);
  AnswerFromBus("51 06 00 1C");
  EXPECT_EQ(Answer("GETMSR1:6\r\n"), Handled({"CIA: MSR value is GOT from card", "MSR1:0x6:0x1C"}));
  EXPECT_EQ(Answer("GETMSRA:6\r\n"),
            Handled({"CIA: MSR value is GOT from card", "MSR10:0x6:0x1C"}));
  EXPECT_EQ(Answer("GETMSRx:6\r\n"), Handled({"CIA: MSR value is GOT from card", "MSR0:0x6:0x1C"}));
  EXPECT_EQ(bodies, LINES({"50 06 40 02", "50 06 40 0B", "50 06 40 01"}));
}

TEST_F(CaeInterpreter, RebootOfAnEmptySlotSendsItsFrame) {
  AnswerFromBus("");
  EXPECT_EQ(Answer("REBOOT:5\r\n"), Handled({"CIE: BUS WRITE ERROR"}));
  EXPECT_EQ(bodies, LINES({"50 05 01 AB"}));
}

// --- ON and OFF ---------------------------------------------------------------------------------

TEST_F(CaeInterpreter, AStateThatIsNeitherOnNorOffKeepsTheCommandsLastOneAndIsEchoed) {
  SetType(14, 9);
  AnswerFromBus("51");
  const auto send = [this](const std::string& line) {
    bodies.clear();
    const LINES answer = Answer(line + "\r\n");
    return answer.front() + bodies.front();
  };
  const std::string test = "CIA: SELFTEST STATE IS SET TO ";
  const std::string light = "CIA: INITLIGHT STATE IS SET TO ";
  const std::string at = " at address E\r\n";
  EXPECT_EQ(send("LCDSELFTEST:E=XY"), test + "XY" + at + "50 0E 01 01 00");
  EXPECT_EQ(send("LCDINITLIGHT:E=XY"), light + "XY" + at + "50 0E 01 02 00");
  EXPECT_EQ(send("LCDSELFTEST:E=ON"), test + "ON" + at + "50 0E 01 01 FF");
  EXPECT_EQ(send("LCDSELFTEST:E=on"), test + "on" + at + "50 0E 01 01 FF");
  EXPECT_EQ(send("LCDINITLIGHT:E=of"), light + "of" + at + "50 0E 01 02 00");
  EXPECT_EQ(send("LCDINITLIGHT:E=ONLY"), light + "ON" + at + "50 0E 01 02 FF");
  EXPECT_EQ(send("LCDSELFTEST:E=OF"), test + "OFF" + at + "50 0E 01 01 00");
  EXPECT_EQ(send("LCDSELFTEST:E=01"), test + "01" + at + "50 0E 01 01 00");
  EXPECT_EQ(send("LCDINITLIGHT:E=01"), light + "01" + at + "50 0E 01 02 FF");
  EXPECT_EQ(send("LCDINITLIGHT:E"), light + at + "50 0E 01 02 FF");
}

// --- recognition --------------------------------------------------------------------------------

TEST_F(CaeInterpreter, UnknownCommandGetsOneMessageThatCarriesItsPrompt) {
  for (const char* const text :
       {"", "\r\n", "X\r\n", "drvver\r\n", "help\r\n", "DRVVER", "REBOOT:5", "DRVVER \r\n",
        " DRVVER\r\n", "DRVVER\n", "reboot:5\r\n", "DRVVER\r\n\r\n", "SPEED\r\n", "POLLON\r\n"}) {
    SCOPED_TRACE(text);
    EXPECT_EQ(Answer(text), LINES({kUnknown}));
  }
  EXPECT_TRUE(daemon.pauses.empty());
}

TEST_F(CaeInterpreter, ValamiIsUnknown) {
  EXPECT_EQ(Answer("VALAMI\r\n"), LINES({kUnknown}));
}

TEST_F(CaeInterpreter, EveryCommandCutAnywhereIsUnknownAndDoesNothing) {
  LINES lines = {"DRVVER",     "DISABLEPOLL",   "ENABLEPOLL", "POLLSTATE",
                 "DISCOVER",   "FORCEDISCOVER", "EXIT",       "HELP",
                 "IOEXAMPLES", "POLLON:2",      "POLLOFF:2",  "GETLASTINPST:2=1",
                 "VALAMI"};
  for (const CARD_VECTOR& vector : CardVectors()) {
    lines.emplace_back(vector.line);
  }
  for (const std::string& line : lines) {
    SCOPED_TRACE(line);
    const std::string whole = line + "\r\n";
    for (std::size_t length = 0; length < whole.size(); ++length) {
      EXPECT_EQ(Answer(whole.substr(0, length)), LINES({kUnknown})) << length;
    }
  }
  EXPECT_TRUE(generalQueue.IsEmpty());
  EXPECT_TRUE(inputLines.IsEmpty());
  EXPECT_TRUE(daemon.pauses.empty());
  EXPECT_EQ(daemon.closings, 0);
}

TEST_F(CaeInterpreter, EveryCommandCutAnywhereWithItsSeparatorEndsWithOnePrompt) {
  for (std::size_t slot = 0; slot < 16; ++slot) {
    SetType(slot, 4);
  }
  for (const CARD_VECTOR& vector : CardVectors()) {
    const std::string line = vector.line;
    SetType(0, vector.cardType);
    SetType(2, vector.cardType);
    AnswerFromBus("51");
    for (std::size_t length = 0; length <= line.size(); ++length) {
      const std::string cut = line.substr(0, length);
      SCOPED_TRACE(cut);
      bodies.clear();
      const LINES answer = Answer(cut + "\r\n");
      if (cut.find(vector.keyword) == std::string::npos) {
        EXPECT_EQ(answer, LINES({kUnknown}));
        EXPECT_TRUE(bodies.empty());
      } else {
        EXPECT_EQ(answer.back(), ">\r\n");
        EXPECT_EQ(answer.size(), vector.success.size() + 1);
        ASSERT_EQ(bodies.size(), 1U);
        EXPECT_EQ(Hex(bodies[0]).size(), Hex(vector.body).size());
        EXPECT_EQ(Hex(bodies[0])[0], 0x50);
        EXPECT_EQ(Hex(bodies[0])[1], length > line.find(':') + 1 ? 2 : 0);
      }
    }
  }
}

TEST_F(CaeInterpreter, TwoLinesInOneReadMatchNoExactCommand) {
  EXPECT_EQ(Answer("DRVVER\r\nHELP\r\n"), LINES({kUnknown}));
}

TEST_F(CaeInterpreter, TwoParameterCommandsInOneReadRunOnceEachInTheTablesOrderOnTheFirstColon) {
  SetType(7, 7);
  SetType(2, 5);
  AnswerFromBus("51 07 00 3C");
  EXPECT_EQ(Answer("GETANMASK:7\r\nREBOOT:2\r\n"),
            Handled({"CIA: Card is REBOOTED", "RBT:0x7:OK", "CIA: MASK is GOT from card",
                     "AMV:0x7:0x3C"}));
  EXPECT_EQ(bodies, LINES({"50 07 01 AB", "50 07 40 01"}));

  bodies.clear();
  EXPECT_EQ(Answer("REBOOT:7\r\nREBOOT:2\r\n"), Handled({"CIA: Card is REBOOTED", "RBT:0x7:OK"}));
  EXPECT_EQ(bodies, LINES({"50 07 01 AB"}));

  // The second is for a servo card, but the first ":" names card 7; the first "=" is its value.
  EXPECT_EQ(Answer("SETANMASK:7=11\r\nSETSCA1:2=22\r\n"),
            Handled({"CIA: Channel MASK of the card is SET", "AMS:0x7:0x11",
                     "CIE: THIS COMMAND IS VALID ON SERVO CONTROLLER CARD ONLY"}));
}

TEST_F(CaeInterpreter, AParameterCommandBesideAnExactOneRunsAlone) {
  AnswerFromBus("51");
  EXPECT_EQ(Answer("DRVVER\r\nREBOOT:5\r\n"), Handled({"CIA: Card is REBOOTED", "RBT:0x5:OK"}));
}

TEST_F(CaeInterpreter, KeywordsMayStandAnywhereInTheText) {
  AnswerFromBus("51");
  EXPECT_EQ(Answer("please REBOOT:5 now\r\n"), Handled({"CIA: Card is REBOOTED", "RBT:0x5:OK"}));
}

TEST_F(CaeInterpreter, UsesTheConfiguredSeparators) {
  Make(";", "<>");
  EXPECT_EQ(Answer("DRVVER;"), LINES({"CIA: DRIVER VERSION 1.20<>", "><>"}));
  EXPECT_EQ(Answer("DRVVER\r\n"), LINES({"CIE: UNKNOWN COMMAND <>><>"}));
  EXPECT_EQ(Answer("SPEED=50;7"), LINES({"CIA: SPEED IS SET to 50%<>", "><>"}));
}

TEST_F(CaeInterpreter, WorksWithEmptySeparators) {
  Make("", "");
  EXPECT_EQ(Answer("DRVVER"), LINES({"CIA: DRIVER VERSION 1.20", ">"}));
  EXPECT_EQ(Answer("SPEED=50"), LINES({"CIA: SPEED IS SET to 50%", ">"}));
  EXPECT_EQ(Answer("X"), LINES({"CIE: UNKNOWN COMMAND >"}));
}

// --- the daemon's own commands ------------------------------------------------------------------

TEST_F(CaeInterpreter, ShowsTheDriverVersion) {
  EXPECT_EQ(Answer("DRVVER\r\n"), Handled({"CIA: DRIVER VERSION 1.20"}));
}

TEST_F(CaeInterpreter, SpeedSetsTheDelayOfThePercentage) {
  const std::pair<const char*, std::int32_t> speeds[] = {{"1", 5000},  {"2", 4949},  {"10", 4545},
                                                         {"50", 2525}, {"75", 1263}, {"98", 102},
                                                         {"99", 51},   {"100", 1}};
  for (const auto& [typed, delayUs] : speeds) {
    SCOPED_TRACE(typed);
    daemon.delaysUs.clear();
    EXPECT_EQ(Answer(std::string("SPEED=") + typed + "\r\n"),
              Handled({std::string("CIA: SPEED IS SET to ") + typed + "%"}));
    EXPECT_EQ(daemon.delaysUs, std::vector<std::int32_t>({delayUs}));
  }
}

TEST_F(CaeInterpreter, SpeedOutOfRangeIsRefusedAndChangesNothing) {
  for (const char* const typed : {"0", "101", "-1", "-50", "", "abc", "x50", "1000", "99999999999",
                                  "-99999999999", "4294967346"}) {
    SCOPED_TRACE(typed);
    EXPECT_EQ(Answer(std::string("SPEED=") + typed + "\r\n"),
              Handled({"CIE: Parameter is out of range (1..100)"}));
  }
  EXPECT_TRUE(daemon.delaysUs.empty());
}

TEST_F(CaeInterpreter, SpeedEchoesTheNumberAsTyped) {
  EXPECT_EQ(Answer("SPEED=050\r\n"), Handled({"CIA: SPEED IS SET to 050%"}));
  EXPECT_EQ(Answer("SPEED= 50\r\n"), Handled({"CIA: SPEED IS SET to  50%"}));
  EXPECT_EQ(Answer("SPEED=50abc\r\n"), Handled({"CIA: SPEED IS SET to 50abc%"}));
  EXPECT_EQ(daemon.delaysUs, std::vector<std::int32_t>({2525, 2525, 2525}));
}

TEST_F(CaeInterpreter, SpeedNeedsNoSeparator) {
  const std::string whole = "SPEED=50\r\n";
  for (std::size_t length = 0; length < whole.size(); ++length) {
    const std::string cut = whole.substr(0, length);
    SCOPED_TRACE(cut);
    if (length < 6) {
      EXPECT_EQ(Answer(cut), LINES({kUnknown}));
    } else if (length == 6) {
      EXPECT_EQ(Answer(cut), Handled({"CIE: Parameter is out of range (1..100)"}));
    } else {
      EXPECT_EQ(Answer(cut),
                Handled({length == 7 ? "CIA: SPEED IS SET to 5%" : "CIA: SPEED IS SET to 50%"}));
    }
  }
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

TEST_F(CaeInterpreter, HelpSendsItsSixtyNineLinesOneMessageEach) {
  ASSERT_EQ(kQuickHelp.size(), 69U);
  EXPECT_EQ(Answer("HELP\r\n"), Handled(kQuickHelp));
}

TEST_F(CaeInterpreter, IoExamplesSendTheirTwentyTwoLinesOneMessageEach) {
  ASSERT_EQ(kIoExamples.size(), 22U);
  EXPECT_EQ(Answer("IOEXAMPLES\r\n"), Handled(kIoExamples));
}

// --- polling ------------------------------------------------------------------------------------

TEST_F(CaeInterpreter, SwitchesGlobalPolling) {
  EXPECT_EQ(Answer("ENABLEPOLL\r\n"), Handled({"CIA: GLOBAL POLLING IS ENABLED"}));
  EXPECT_TRUE(daemon.polling);
  EXPECT_EQ(Answer("ENABLEPOLL\r\n"), Handled({"CIA: GLOBAL POLLING IS ENABLED"}));
  EXPECT_EQ(Answer("DISABLEPOLL\r\n"), Handled({"CIA: GLOBAL POLLING IS DISABLED"}));
  EXPECT_FALSE(daemon.polling);
  EXPECT_EQ(Answer("DISABLEPOLL\r\n"), Handled({"CIA: GLOBAL POLLING IS DISABLED"}));
}

TEST_F(CaeInterpreter, SwitchesTheFlagOfAnInputCardAlsoWhilePollingIsOff) {
  const auto flag = [this](std::size_t address) {
    return cards.With(address, [](const PERIFCARD& card) { return card.pollFlag; });
  };
  cards.With(12, [](PERIFCARD& card) { card.stateWord = 1; });
  EXPECT_EQ(Answer("POLLON:C\r\n"), Handled({"CIA: POLLON is OK at address C"}));
  EXPECT_EQ(flag(12), 1);
  EXPECT_EQ(Answer("POLLOFF:C\r\n"), Handled({"CIA: POLLOFF is OK at address C"}));
  EXPECT_EQ(flag(12), 0);
  EXPECT_TRUE(daemon.pauses.empty());
  EXPECT_TRUE(generalQueue.IsEmpty());
}

TEST_F(CaeInterpreter, RefusesToPollACardThatIsNoInputCard) {
  for (const int state : {0, 3}) {
    for (const int flag : {0, 1}) {
      cards.With(2, [&](PERIFCARD& card) {
        card.typeCode = 4;  // the state counts, not the type
        card.stateWord = state;
        card.pollFlag = static_cast<std::uint8_t>(flag);
      });
      for (const char* const line : {"POLLON:2\r\n", "POLLOFF:2\r\n"}) {
        EXPECT_EQ(Answer(line), Handled({"CIE: THIS COMMAND IS VALID ON INPUT CARDS"}));
        EXPECT_EQ(cards.With(2, [](const PERIFCARD& card) { return card.pollFlag; }), flag);
      }
    }
  }
}

TEST_F(CaeInterpreter, ListsThePollingStateOfInputCardsOnly) {
  EXPECT_EQ(Answer("POLLSTATE\r\n"), Handled({"CIA: GLOBAL POLLING IS DISABLED"}));
  daemon.polling = true;
  EXPECT_EQ(Answer("POLLSTATE\r\n"), Handled({"CIA: GLOBAL POLLING IS ENABLED"}));
  for (std::size_t slot = 0; slot < 17; ++slot) {
    cards.With(slot, [slot](PERIFCARD& card) {
      card.stateWord = slot % 5 == 0 || slot == 16 ? 1 : slot % 5 == 1 ? 0 : 3;
      card.pollFlag = slot < 8 ? 1 : 0;
    });
  }
  EXPECT_EQ(Answer("POLLSTATE\r\n"), Handled({"CIA: GLOBAL POLLING IS ENABLED", "PTI:0x0:ON",
                                              "PTI:0x5:ON", "PTI:0xA:OFF", "PTI:0xF:OFF"}));
}

// --- the last input state -----------------------------------------------------------------------

TEST_F(CaeInterpreter, SendsTheLastInputStateAsCardInput) {
  const auto values = [](PERIFCARD& card) {
    for (std::size_t i = 0; i < 16; ++i) {
      card.values[i] = static_cast<std::uint8_t>(0xA0 + i);
    }
  };
  cards.With(3, values);
  cards.With(15, values);
  SetType(3, 4);
  SetType(15, 7);
  const LINES sent = Handled({"CIA: LAST INPUT STATE SENT ON IO INTERFACE"});
  for (const char block : {'0', '1'}) {
    EXPECT_EQ(Answer(std::string("GETLASTINPST:3=") + block + "\r\n"), sent);
    EXPECT_EQ(TakeAll(inputLines), LINES({std::string("a3b") + block + "dA" + block}));
  }
  for (const char block : {'0', '1', '2', '3', '4', '5'}) {
    EXPECT_EQ(Answer(std::string("GETLASTINPST:F=") + block + "\r\n"), sent);
    EXPECT_EQ(TakeAll(inputLines), LINES({std::string("aFb") + block + "dA" + block}));
  }
  // A missing or bad block digit is block 0.
  EXPECT_EQ(Answer("GETLASTINPST:3\r\n"), sent);
  EXPECT_EQ(Answer("GETLASTINPST:3=x\r\n"), sent);
  EXPECT_EQ(TakeAll(inputLines), LINES({"a3b0dA0", "a3b0dA0"}));
  EXPECT_TRUE(generalQueue.IsEmpty());
  EXPECT_TRUE(daemon.pauses.empty());
}

TEST_F(CaeInterpreter, RefusesALastInputStateOfABlockThatTheCardHasNot) {
  SetType(3, 4);
  SetType(15, 7);
  const LINES refused = Handled({"CIE: INVALID BLOCK NUMBER"});
  for (const char block : std::string("23456789ABCDEF")) {
    EXPECT_EQ(Answer(std::string("GETLASTINPST:3=") + block + "\r\n"), refused);
  }
  for (const char block : std::string("6789ABCDEF")) {
    EXPECT_EQ(Answer(std::string("GETLASTINPST:F=") + block + "\r\n"), refused);
  }
  EXPECT_TRUE(inputLines.IsEmpty());
}

TEST_F(CaeInterpreter, RefusesALastInputStateOfAnyOtherCardWhateverTheBlock) {
  for (int type = 0; type <= 255; ++type) {
    if (type == 4 || type == 7) {
      continue;
    }
    SetType(3, type);
    for (const char* const block : {"0", "F"}) {
      ASSERT_EQ(Answer(std::string("GETLASTINPST:3=") + block + "\r\n"),
                Handled({"CIE: THIS COMMAND IS VALID ON ANALOG OR DIGITAL INPUT CARD ONLY"}))
          << type;
    }
  }
  EXPECT_TRUE(inputLines.IsEmpty());
}

// --- discovery ----------------------------------------------------------------------------------

LINES Listing(const std::string& title, const std::string& cardThree) {
  LINES lines = {title};
  for (const char digit : std::string("0123456789ABCDEF")) {
    lines.push_back(std::string("DTI:0x") + digit + ":" + (digit == '3' ? cardThree : "EMPTY"));
  }
  return lines;
}

TEST_F(CaeInterpreter, ListsAllSixteenSlotsEmptyOnesIncluded) {
  EXPECT_EQ(Answer("DISCOVER\r\n"), Handled(Listing("DISCOVER LIST:", "EMPTY")));
  cards.With(3, [](PERIFCARD& card) { card.SetName("16 channel DIGITAL INPUT"); });
  EXPECT_EQ(Answer("DISCOVER\r\n"), Handled(Listing("DISCOVER LIST:", "16 channel DIGITAL INPUT")));
  EXPECT_TRUE(daemon.pauses.empty());
  EXPECT_TRUE(generalQueue.IsEmpty());
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
    EXPECT_EQ(Answer("FORCEDISCOVER\r\n"),
              Handled(Listing("FORCED DISCOVER LIST:", "KEYMX and ROTE CONTROLLER")));
    EXPECT_EQ(daemon.pauses, std::vector<int>({1, 1}));
    EXPECT_EQ(daemon.polling, polling);
  }
}

TEST_F(CaeInterpreter, ForcedDiscoveryListsCardsThatDoNotAnswerInTimeAsEmpty) {
  cards.With(3, [](PERIFCARD& card) { card.SetName("stale"); });
  EXPECT_EQ(Answer("FORCEDISCOVER\r\n"), Handled(Listing("FORCED DISCOVER LIST:", "EMPTY")));
}

TEST_F(CaeInterpreter, ForcedDiscoveryIsNotMistakenForDiscovery) {
  const LINES answer = Answer("FORCEDISCOVER\r\n");
  EXPECT_EQ(std::count(answer.begin(), answer.end(), "DISCOVER LIST:\r\n"), 0);
}

}  // namespace
}  // namespace unit
