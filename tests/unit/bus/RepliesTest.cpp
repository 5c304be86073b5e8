// What a reply does to the card table and to the clients.

#include "tests/unit/bus/SerialFixture.h"

namespace unit {
namespace {

class Replies : public SERIAL_FIXTURE {
 protected:
  using LINES = std::vector<std::string>;

  Replies() { Connect(); }

  /// All records as they are, to show that nothing has changed.
  std::string Picture() {
    std::string picture;
    for (std::size_t i = 0; i < CARD_TABLE::kRecords; ++i) {
      const PERIFCARD card = Card(i);
      picture += std::to_string(card.stateWord) + " " + std::to_string(card.channelCount) + " " +
                 std::to_string(card.address) + " " + std::to_string(card.typeCode) + " " +
                 card.name.data() + " " + ToHex(BYTES(card.values.begin(), card.values.end())) +
                 "/" + ToHex(BYTES(card.changeFlags.begin(), card.changeFlags.end())) + "/" +
                 ToHex(BYTES(card.queryBytes.begin(), card.queryBytes.end())) + " " +
                 std::to_string(card.pollFlag) + " " + std::to_string(card.sampleCount) + " " +
                 ToHex(card.pollFrame) + "\n";
    }
    return picture;
  }

  /// Takes the first `length` bytes of a reply, for each length below its own.
  void ExpectAllShorterOnesIgnored(const char* reply) {
    const BYTES whole = Hex(reply);
    const std::string before = Picture();
    for (std::size_t length = 0; length < whole.size(); ++length) {
      SCOPED_TRACE(length);
      TakeReply(BYTES(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)));
      EXPECT_EQ(Picture(), before);
      EXPECT_EQ(TakeLines(), LINES());
      EXPECT_EQ(serial->LinkStatus(), 3);
    }
  }

  /// Six channels of one value each time, `count` times.
  void TakeSamples(int count, const char* sixBytes) {
    for (int i = 0; i < count; ++i) {
      TakeReply(Hex("21 0F") + Hex(sixBytes));
    }
  }
};

// --- identification -----------------------------------------------------------------------------

struct IDENTIFIED {
  int code;
  const char* name;
  int state;
  int channels;
  const char* values;  // the first six
  int pollFlag;
  const char* pollFrame;
};

TEST_F(Replies, IdentificationFillsEachSlotByItsTypeCode) {
  // The slot is 7; the values of a cleared record are 0.
  const IDENTIFIED kinds[] = {
      {0, "EMPTY", 3, 0, "00 00 00 00 00 00", 0, ""},
      {3, "16 channel DIGITAL OUTPUT", 0, 2, "FF FF 00 00 00 00", 0, ""},
      {4, "16 channel DIGITAL INPUT", 1, 2, "00 00 00 00 00 00", 1, "20 07 02"},
      {5, "6 channel RC SERVO CONTROLLER", 0, 6, "80 80 80 80 80 80", 0, ""},
      {6, "3 channel DC MOTOR CONTROLLER", 0, 6, "00 00 00 00 00 00", 0, ""},
      {7, "6 channel ANALOGUE INPUT", 1, 6, "00 00 00 00 00 00", 1, "20 07 06"},
      {8, "KEYMX and ROTE CONTROLLER", 1, 1, "00 00 00 00 00 00", 1, "20 07 01"},
      {9, "ALPHANUMERIC LCD CONTROLLER", 0, 21, "00 00 00 00 00 00", 0, ""},
      {10, "IR REMOTE CONTROLLER", 0, 1, "00 00 00 00 00 00", 0, ""},
      {255, "CARD?", 3, 0, "00 00 00 00 00 00", 0, ""},
      {1, "UNIDENTIFIED", 3, 0, "00 00 00 00 00 00", 0, ""},
      {2, "UNIDENTIFIED", 3, 0, "00 00 00 00 00 00", 0, ""},
      {11, "UNIDENTIFIED", 3, 0, "00 00 00 00 00 00", 0, ""},
      {254, "UNIDENTIFIED", 3, 0, "00 00 00 00 00 00", 0, ""},
  };
  for (const IDENTIFIED& kind : kinds) {
    SCOPED_TRACE(kind.code);
    cards.With(7, [](PERIFCARD& card) { card.clearPerifCard(); });
    Identify(7, static_cast<std::uint8_t>(kind.code));
    const PERIFCARD card = Card(7);
    EXPECT_EQ(card.typeCode, kind.code);
    EXPECT_EQ(card.address, 7);
    EXPECT_STREQ(card.name.data(), kind.name);
    EXPECT_EQ(card.stateWord, kind.state);
    EXPECT_EQ(card.channelCount, kind.channels);
    EXPECT_EQ(ToHex(BYTES(card.values.begin(), card.values.begin() + 6)), kind.values);
    EXPECT_EQ(card.pollFlag, kind.pollFlag);
    EXPECT_EQ(ToHex(card.pollFrame), kind.pollFrame);
  }
  EXPECT_EQ(TakeLines(), LINES());
}

TEST_F(Replies, IdentificationNamesSlotZeroFirst) {
  TakeReply("31 05 06 00 04 00 03 00 00 08 0A FF 0B 00 00 09 07");
  const int codes[] = {5, 6, 0, 4, 0, 3, 0, 0, 8, 10, 255, 11, 0, 0, 9, 7};
  for (std::size_t slot = 0; slot < 16; ++slot) {
    EXPECT_EQ(Card(slot).typeCode, codes[slot]);
  }
  EXPECT_EQ(Card(16).stateWord, 3);
  EXPECT_EQ(Card(16).typeCode, 0);
}

TEST_F(Replies, IdentificationKeepsWhatTheTypeDoesNotSet) {
  PERIFCARD card = Card(6);
  card.values.fill(0x33);
  card.changeFlags.fill(1);
  card.queryBytes.fill(0x44);
  SetCard(6, card);
  Identify(6, 3);
  const PERIFCARD identified = Card(6);
  EXPECT_EQ(ToHex(BYTES(identified.values.begin(), identified.values.begin() + 3)), "FF FF 33");
  EXPECT_EQ(identified.changeFlags, card.changeFlags);
  EXPECT_EQ(identified.queryBytes, card.queryBytes);
  EXPECT_EQ(TakeLines(), LINES());
}

TEST_F(Replies, IdentificationShorterThanSixteenCodesIsIgnored) {
  ExpectAllShorterOnesIgnored("31 05 06 00 04 00 03 00 00 08 0A FF 0B 00 00 09 07");
}

TEST_F(Replies, IdentificationIgnoresWhatFollowsTheSixteenCodes) {
  TakeReply("31 05 06 00 04 00 03 00 00 08 0A FF 0B 00 00 09 07 04 04");
  EXPECT_EQ(Card(15).typeCode, 7);
  EXPECT_EQ(Card(16).typeCode, 0);
}

// --- query data ---------------------------------------------------------------------------------

TEST_F(Replies, QueryDataKeepsSixteenBytesFromTheCodeOn) {
  TakeReply("51 05 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 11");
  const PERIFCARD card = Card(5);
  EXPECT_EQ(ToHex(BYTES(card.queryBytes.begin(), card.queryBytes.begin() + 16)),
            "51 05 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F");
}

TEST_F(Replies, ShortQueryDataFillsWhatItHasAndZeroesTheRest) {
  for (std::size_t length = 2; length <= 16; ++length) {
    SCOPED_TRACE(length);
    cards.With(5, [](PERIFCARD& card) { card.queryBytes.fill(0xEE); });
    BYTES reply(length, 0x77);
    reply[0] = 'Q';
    reply[1] = 5;
    TakeReply(reply);
    BYTES expected = reply;
    expected.resize(16, 0);
    const PERIFCARD card = Card(5);
    EXPECT_EQ(ToHex(BYTES(card.queryBytes.begin(), card.queryBytes.begin() + 16)), ToHex(expected));
  }
}

TEST_F(Replies, QueryDataWithoutAnAddressIsIgnored) {
  ExpectAllShorterOnesIgnored("51 00");
}

TEST_F(Replies, QueryDataOfACardThatNeverChangedSendsNothing) {
  Identify(3, 4);
  TakeReply("51 03 00 2A");
  EXPECT_EQ(TakeLines(), LINES());
}

TEST_F(Replies, QueryDataSendsTheLinesOfTheLastChangeAgain) {
  Identify(3, 4);
  TakeReply("21 03 40 01");
  EXPECT_EQ(TakeLines(), LINES({"a3b0d40", "a3b1d01"}));
  TakeReply("51 03 00 2A");
  EXPECT_EQ(TakeLines(), LINES({"a3b0d40", "a3b1d01"}));
}

TEST_F(Replies, ForAnAddressAboveFifteenAreIgnored) {
  const std::string before = Picture();
  for (const char* const reply :
       {"51 10 02 03", "51 FF 02 03", "21 10 40 40", "21 80 40 40", "21 FF 40 40"}) {
    SCOPED_TRACE(reply);
    TakeReply(reply);
    EXPECT_EQ(Picture(), before);
    EXPECT_EQ(TakeLines(), LINES());
  }
}

TEST_F(Replies, OfAnUnknownCodeAreIgnored) {
  const std::string before = Picture();
  for (int code = 0; code <= 255; ++code) {
    if (code == '1' || code == 'Q' || code == '!' || code == 'T') {
      continue;
    }
    BYTES reply(17, 4);
    reply[0] = static_cast<std::uint8_t>(code);
    TakeReply(reply);
    ASSERT_EQ(Picture(), before) << code;
    ASSERT_EQ(serial->LinkStatus(), 3) << code;
  }
  EXPECT_EQ(TakeLines(), LINES());
}

// --- digital input ------------------------------------------------------------------------------

TEST_F(Replies, DigitalInputReportsTheGroupsThatChangedTheFirstFirst) {
  Identify(3, 4);
  TakeReply("21 03 40 00");
  EXPECT_EQ(TakeLines(), LINES({"a3b0d40"}));
  TakeReply("21 03 40 80");
  EXPECT_EQ(TakeLines(), LINES({"a3b1d80"}));
  TakeReply("21 03 00 01");
  EXPECT_EQ(TakeLines(), LINES({"a3b0d00", "a3b1d01"}));
  EXPECT_EQ(Card(3).values[0], 0x00);
  EXPECT_EQ(Card(3).values[1], 0x01);
}

TEST_F(Replies, DigitalInputWithoutAChangeReportsNothingAndClearsTheFlags) {
  Identify(3, 4);
  TakeReply("21 03 40 01");
  TakeLines();
  TakeReply("21 03 40 01");
  EXPECT_EQ(TakeLines(), LINES());
  EXPECT_EQ(Card(3).changeFlags, PERIFCARD().changeFlags);
}

TEST_F(Replies, DigitalInputNeedsBothGroups) {
  Identify(3, 4);
  ExpectAllShorterOnesIgnored("21 03 40 01");
  TakeReply("21 03 40 01 55 55");
  EXPECT_EQ(TakeLines(), LINES({"a3b0d40", "a3b1d01"}));
}

TEST_F(Replies, InputDataThatIsTooShortLeavesTheFlagsOfTheLastChange) {
  Identify(3, 4);
  TakeReply("21 03 40 00");
  TakeReply("21 03 41");
  EXPECT_EQ(Card(3).changeFlags[0], 1);
}

// --- key matrix ---------------------------------------------------------------------------------

TEST_F(Replies, KeyMatrixReportsAChangedValueInBlockZero) {
  Identify(8, 8);
  TakeReply("21 08 05");
  EXPECT_EQ(TakeLines(), LINES({"a8b0d05"}));
  TakeReply("21 08 05");
  EXPECT_EQ(TakeLines(), LINES());
  TakeReply("21 08 00");
  EXPECT_EQ(TakeLines(), LINES({"a8b0d00"}));
}

TEST_F(Replies, KeyMatrixNeedsItsValue) {
  Identify(8, 8);
  ExpectAllShorterOnesIgnored("21 08 05");
}

// --- analogue input -----------------------------------------------------------------------------

TEST_F(Replies, AnalogueInputSumsSixSamplesAndReportsTheirAverageAtTheSeventhReply) {
  Identify(15, 7);
  TakeSamples(6, "10 20 30 40 50 60");
  EXPECT_EQ(TakeLines(), LINES());
  TakeSamples(1, "FF FF FF FF FF FF");  // not used
  EXPECT_EQ(TakeLines(), LINES({"aFb0d10", "aFb1d20", "aFb2d30", "aFb3d40", "aFb4d50", "aFb5d60"}));
  EXPECT_EQ(Card(15).sampleCount, 0);
  EXPECT_EQ(Card(15).analogueSums, PERIFCARD().analogueSums);
}

TEST_F(Replies, AnalogueAveragesAreTruncated) {
  Identify(15, 7);
  TakeSamples(5, "01 FF 00 02 00 00");
  TakeSamples(1, "00 FE 05 07 06 00");
  TakeSamples(1, "00 00 00 00 00 00");
  // Sums 5, 1529, 5, 17, 6, 0 of six samples.
  EXPECT_EQ(TakeLines(), LINES({"aFb1dFE", "aFb3d02", "aFb4d01"}));
}

TEST_F(Replies, AnalogueInputTakesTheFullRange) {
  Identify(15, 7);
  TakeSamples(7, "FF FF FF FF FF FF");
  EXPECT_EQ(TakeLines(), LINES({"aFb0dFF", "aFb1dFF", "aFb2dFF", "aFb3dFF", "aFb4dFF", "aFb5dFF"}));
}

TEST_F(Replies, AnalogueChannelsThatKeepTheirAverageAreNotReported) {
  Identify(15, 7);
  TakeSamples(7, "10 20 30 40 50 60");
  TakeLines();
  TakeSamples(7, "10 20 31 40 50 60");
  EXPECT_EQ(TakeLines(), LINES({"aFb2d31"}));
  TakeSamples(7, "10 20 31 40 50 60");
  EXPECT_EQ(TakeLines(), LINES());
}

TEST_F(Replies, AnalogueInputNeedsAllSixChannels) {
  Identify(15, 7);
  ExpectAllShorterOnesIgnored("21 0F 10 20 30 40 50 60");
}

TEST_F(Replies, AnalogueSamplesPerReportAreTheRecords) {
  Identify(15, 7);
  cards.With(15, [](PERIFCARD& card) { card.samplesPerReport = 1; });
  TakeSamples(1, "10 10 10 10 10 10");
  EXPECT_EQ(TakeLines(), LINES());
  TakeSamples(1, "20 20 20 20 20 20");
  EXPECT_EQ(TakeLines().size(), 6U);
  EXPECT_EQ(Card(15).values[0], 0x10);
}

TEST_F(Replies, NoSamplesPerReportDoNotDivideByZero) {
  Identify(15, 7);
  for (const int samples : {0, -1}) {
    cards.With(15, [samples](PERIFCARD& card) { card.samplesPerReport = samples; });
    TakeSamples(4, "10 10 10 10 10 10");
  }
  EXPECT_EQ(TakeLines().size(), 6U);
}

TEST_F(Replies, AnalogueCardClearedInTheMiddleAveragesOverTheSamplesCountedBefore) {
  Identify(15, 7);
  TakeSamples(3, "10 10 10 10 10 10");
  cards.With(15, [](PERIFCARD& card) { card.clearPerifCard(); });
  Identify(15, 7);
  EXPECT_EQ(Card(15).sampleCount, 3);
  TakeSamples(3, "10 10 10 10 10 10");
  TakeSamples(1, "00 00 00 00 00 00");
  EXPECT_EQ(Card(15).values[0], 0x08);  // three samples of 16 over a count of six
  EXPECT_EQ(TakeLines().size(), 6U);
}

// --- other cards --------------------------------------------------------------------------------

TEST_F(Replies, InputDataOfOtherCardsOnlyClearsTheFlags) {
  for (const int type : {0, 3, 5, 6, 9, 10, 11, 255}) {
    SCOPED_TRACE(type);
    Identify(4, static_cast<std::uint8_t>(type));
    PERIFCARD card = Card(4);
    card.changeFlags.fill(1);
    SetCard(4, card);
    TakeReply("21 04 11 22 33 44 55 66");
    EXPECT_EQ(Card(4).values, card.values);
    EXPECT_EQ(Card(4).changeFlags, PERIFCARD().changeFlags);
    EXPECT_EQ(TakeLines(), LINES());
  }
}

// --- the report ---------------------------------------------------------------------------------

TEST_F(Replies, ReportSendsALineForEachOfSixteenFlagsInOrderAndLeavesThemSet) {
  PERIFCARD card = Card(0xC);
  LINES expected;
  for (std::size_t channel = 0; channel < 16; ++channel) {
    card.changeFlags[channel] = channel % 3 == 0 ? 1 : 0;
    card.values[channel] = static_cast<std::uint8_t>(0xF0 + channel);
  }
  SetCard(0xC, card);
  const BYTES reply = Hex("51 0C");
  serial->WriteToQueue(reply.data());
  EXPECT_EQ(TakeLines(), LINES({"aCb0dF0", "aCb3dF3", "aCb6dF6", "aCb9dF9", "aCbCdFC", "aCbFdFF"}));
  EXPECT_EQ(Card(0xC).changeFlags, card.changeFlags);
}

}  // namespace
}  // namespace unit
