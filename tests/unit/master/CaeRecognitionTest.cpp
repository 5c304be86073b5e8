// The operator's command line: which command a line is, and what a line that is none gets.

#include "tests/unit/master/CaeInterpreterFixture.h"

namespace vorn {

namespace unit {
namespace {

using namespace support::cae;  // NOLINT(google-build-using-namespace): the vectors' words

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

}  // namespace
}  // namespace unit

}  // namespace vorn
