// The operator's command line: each card command's frame, replies and refusals.

#include "tests/unit/master/CaeInterpreterFixture.h"

namespace vorn {

namespace unit {
namespace {

using namespace support::cae;  // NOLINT(google-build-using-namespace): the vectors' words

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

}  // namespace
}  // namespace unit

}  // namespace vorn
