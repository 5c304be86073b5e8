// What a reply does to the card table, and the lines that it makes.

#include "tests/support/CaeVectors.h"
#include "tests/support/unit/Bytes.h"
#include "vorn/bus/CardReplies.h"

#include <gtest/gtest.h>

namespace vorn {

namespace unit {
namespace {

using LINES = std::vector<std::string>;

class Replies : public testing::Test {
 protected:
  /// The lines that a reply with this body brings.
  LINES Take(const BYTES& body) {
    return TakeReply(cards, body) ? cards.With(body[1], ChangedInputLines) : LINES();
  }
  LINES Take(const char* body) { return Take(Hex(body)); }

  /// Six channels, `count` times; the lines that the last one brings. The ones before bring none.
  LINES TakeSamples(int count, const char* sixBytes) {
    LINES lines;
    for (int i = 0; i < count; ++i) {
      EXPECT_EQ(lines, LINES());
      lines = Take(Hex("21 0F") + Hex(sixBytes));
    }
    return lines;
  }

  PERIFCARD Card(std::size_t address) {
    return cards.With(address, [](const PERIFCARD& card) { return card; });
  }

  /// Makes slot `address` a card of this type, as identification does, without touching others.
  void Identify(std::size_t address, std::uint8_t typeCode) {
    BYTES reply(17, '1');
    for (std::size_t slot = 0; slot < 16; ++slot) {
      reply[1 + slot] = slot == address ? typeCode : Card(slot).typeCode;
    }
    EXPECT_EQ(Take(reply), LINES());
  }

  /// All records as they are, to show that nothing has changed.
  std::string Picture() {
    std::string picture;
    for (std::size_t i = 0; i < CARD_TABLE::kRecords; ++i) {
      const PERIFCARD card = Card(i);
      for (const int number : {card.stateWord, card.channelCount, int{card.address},
                               int{card.typeCode}, int{card.pollFlag}, card.sampleCount}) {
        picture += std::to_string(number) + " ";
      }
      picture += card.name.data();
      for (const auto& bytes : {card.values, card.changeFlags, card.queryBytes}) {
        picture += " " + ToHex(BYTES(bytes.begin(), bytes.end()));
      }
      picture += " " + ToHex(card.pollFrame) + "\n";
    }
    return picture;
  }

  void ExpectIgnored(const BYTES& reply) {
    SCOPED_TRACE(ToHex(reply));
    const std::string before = Picture();
    EXPECT_EQ(Take(reply), LINES());
    EXPECT_EQ(Picture(), before);
  }

  CARD_TABLE cards;
};

template <class ARRAY>
std::string FirstBytes(const ARRAY& bytes, int count) {
  return ToHex(BYTES(bytes.begin(), bytes.begin() + count));
}

// --- what is ignored ----------------------------------------------------------------------------

TEST_F(Replies, ThatAreTooShortForTheirKindOrCardAreIgnored) {
  Identify(3, 4);
  Identify(8, 8);
  Identify(15, 7);
  for (const char* const reply : {"31 05 06 00 04 00 03 00 00 08 0A FF 0B 00 00 09 07", "51 00",
                                  "21 03 40 01", "21 08 05", "21 0F 10 20 30 40 50 60"}) {
    const BYTES whole = Hex(reply);
    for (std::size_t length = 1; length < whole.size(); ++length) {
      ExpectIgnored(BYTES(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)));
    }
  }
}

TEST_F(Replies, ForAnAddressAboveFifteenAreIgnored) {
  for (const char* const reply :
       {"51 10 02 03", "51 FF 02 03", "21 10 40 40", "21 80 40 40", "21 FF 40 40"}) {
    ExpectIgnored(Hex(reply));
  }
}

TEST_F(Replies, OfAnUnknownCodeAreIgnored) {
  for (int code = 0; code <= 255; ++code) {
    if (code != '1' && code != 'Q' && code != '!') {
      BYTES reply(17, 4);
      reply[0] = static_cast<std::uint8_t>(code);
      ExpectIgnored(reply);
    }
  }
}

TEST_F(Replies, MayBeLongerThanTheirKindNeeds) {
  Identify(3, 4);
  EXPECT_EQ(Take("21 03 40 01 55 55"), LINES({"a3b0d40", "a3b1d01"}));
  Take("31 05 06 00 04 00 03 00 00 08 0A FF 0B 00 00 09 07 04 04");
  EXPECT_EQ(Card(15).typeCode, 7);
  EXPECT_EQ(Card(16).typeCode, 0);
}

// --- identification -----------------------------------------------------------------------------

TEST_F(Replies, IdentificationMakesEachSlotACardOfItsTypeCodeSlotZeroFirst) {
  const BYTES reply = Hex("31 05 06 00 04 01 03 02 07 08 0A FF 0B FE 09 04 03");
  EXPECT_EQ(Take(reply), LINES());
  for (std::uint8_t slot = 0; slot < 16; ++slot) {
    SCOPED_TRACE(int{slot});
    const CARD_TYPE& type = FindCardType(reply[std::size_t{1} + slot]);
    const PERIFCARD card = Card(slot);
    EXPECT_EQ(card.typeCode, reply[std::size_t{1} + slot]);
    EXPECT_EQ(card.address, slot);
    EXPECT_STREQ(card.name.data(), type.name);
    EXPECT_EQ(card.stateWord, type.state);
    EXPECT_EQ(card.channelCount, type.channels);
    for (std::size_t i = 0; i < card.values.size(); ++i) {
      EXPECT_EQ(card.values[i], i < type.presetValues ? type.preset : 0);
    }
    EXPECT_EQ(card.pollFlag, type.pollCount == 0 ? 0 : 1);
    EXPECT_EQ(card.pollFrame,
              type.pollCount == 0 ? QList() : bus::PollRequest(slot, type.pollCount));
  }
  EXPECT_EQ(Card(16).stateWord, 3);
  EXPECT_EQ(Card(16).typeCode, 0);
}

TEST_F(Replies, IdentificationKeepsWhatTheTypeDoesNotSet) {
  cards.With(6, [](PERIFCARD& card) {
    card.values.fill(0x33);
    card.changeFlags.fill(1);
    card.queryBytes.fill(0x44);
  });
  const PERIFCARD card = Card(6);
  Identify(6, 3);
  const PERIFCARD identified = Card(6);
  EXPECT_EQ(FirstBytes(identified.values, 3), "FF FF 33");
  EXPECT_EQ(identified.changeFlags, card.changeFlags);
  EXPECT_EQ(identified.queryBytes, card.queryBytes);
}

TEST_F(Replies, EachIdentificationAppendsToThePollFrameAsLongAsItFitsARequest) {
  constexpr int kThatFit = 84;
  for (int i = 1; i <= kThatFit + 3; ++i) {
    Identify(3, 4);
    ASSERT_EQ(Card(3).pollFrame.size(), 3U * static_cast<unsigned>(std::min(i, kThatFit)));
  }
  cards.With(3, [](PERIFCARD& card) { card.clearPerifCard(); });
  Identify(3, 4);
  Identify(3, 4);
  EXPECT_EQ(ToHex(Card(3).pollFrame), "20 03 02 20 03 02");
}

// --- query data ---------------------------------------------------------------------------------

TEST_F(Replies, QueryDataKeepsSixteenBytesFromTheCodeOnAndZeroesWhatIsMissing) {
  for (std::size_t length = 2; length <= 18; ++length) {
    SCOPED_TRACE(length);
    cards.With(5, [](PERIFCARD& card) { card.queryBytes.fill(0xEE); });
    BYTES reply(length, 0x77);
    reply[0] = 'Q';
    reply[1] = 5;
    EXPECT_EQ(Take(reply), LINES());  // of a card that never changed
    reply.resize(16, 0);
    EXPECT_EQ(FirstBytes(Card(5).queryBytes, 16), ToHex(reply));
  }
}

TEST_F(Replies, QueryDataSendsTheLinesOfTheLastChangeAgain) {
  Identify(3, 4);
  const LINES lines = {"a3b0d40", "a3b1d01"};
  EXPECT_EQ(Take("21 03 40 01"), lines);
  EXPECT_EQ(Take("51 03 00 2A"), lines);
}

// --- digital input and key matrix ---------------------------------------------------------------

TEST_F(Replies, DigitalInputReportsTheGroupsThatChangedTheFirstFirst) {
  Identify(3, 4);
  EXPECT_EQ(Take("21 03 40 00"), LINES({"a3b0d40"}));
  EXPECT_EQ(Take("21 03 40 80"), LINES({"a3b1d80"}));
  EXPECT_EQ(Take("21 03 00 01"), LINES({"a3b0d00", "a3b1d01"}));
  EXPECT_EQ(FirstBytes(Card(3).values, 2), "00 01");
}

TEST_F(Replies, DigitalInputWithoutAChangeReportsNothingAndClearsTheFlags) {
  Identify(3, 4);
  Take("21 03 40 01");
  EXPECT_EQ(Take("21 03 40 01"), LINES());
  EXPECT_EQ(Card(3).changeFlags, PERIFCARD().changeFlags);
}

TEST_F(Replies, KeyMatrixReportsAChangedValueInBlockZero) {
  Identify(8, 8);
  EXPECT_EQ(Take("21 08 05"), LINES({"a8b0d05"}));
  EXPECT_EQ(Take("21 08 05"), LINES());
  EXPECT_EQ(Take("21 08 00"), LINES({"a8b0d00"}));
}

TEST_F(Replies, InputDataOfOtherCardsOnlyClearsTheFlags) {
  for (int type = 0; type <= 255; ++type) {
    if (support::cae::FindInputCard(type) != nullptr) {
      continue;
    }
    SCOPED_TRACE(type);
    Identify(4, static_cast<std::uint8_t>(type));
    cards.With(4, [](PERIFCARD& card) { card.changeFlags.fill(1); });
    const PERIFCARD card = Card(4);
    EXPECT_EQ(Take("21 04 11 22 33 44 55 66"), LINES());
    EXPECT_EQ(Card(4).values, card.values);
    EXPECT_EQ(Card(4).changeFlags, PERIFCARD().changeFlags);
  }
}

// --- analogue input -----------------------------------------------------------------------------

TEST_F(Replies, AnalogueInputSumsSixSamplesAndReportsTheirAverageAtTheSeventhReply) {
  Identify(15, 7);
  EXPECT_EQ(TakeSamples(6, "10 20 30 40 50 FF"), LINES());
  EXPECT_EQ(TakeSamples(1, "FF FF FF FF FF FF"),  // not used
            LINES({"aFb0d10", "aFb1d20", "aFb2d30", "aFb3d40", "aFb4d50", "aFb5dFF"}));
  EXPECT_EQ(Card(15).sampleCount, 0);
  EXPECT_EQ(Card(15).analogueSums, PERIFCARD().analogueSums);
}

TEST_F(Replies, AnalogueAveragesAreTruncated) {
  Identify(15, 7);
  TakeSamples(5, "01 FF 00 02 00 00");
  TakeSamples(1, "00 FE 05 07 06 00");
  // Sums 5, 1529, 5, 17, 6, 0 of six samples.
  EXPECT_EQ(TakeSamples(1, "00 00 00 00 00 00"), LINES({"aFb1dFE", "aFb3d02", "aFb4d01"}));
}

TEST_F(Replies, AnalogueChannelsThatKeepTheirAverageAreNotReported) {
  Identify(15, 7);
  EXPECT_EQ(TakeSamples(7, "10 20 30 40 50 60").size(), 6U);
  EXPECT_EQ(TakeSamples(7, "10 20 31 40 50 60"), LINES({"aFb2d31"}));
  EXPECT_EQ(TakeSamples(7, "10 20 31 40 50 60"), LINES());
}

TEST_F(Replies, AnalogueSamplesPerReportAreTheRecords) {
  Identify(15, 7);
  cards.With(15, [](PERIFCARD& card) { card.samplesPerReport = 1; });
  EXPECT_EQ(TakeSamples(1, "10 10 10 10 10 10"), LINES());
  EXPECT_EQ(TakeSamples(1, "20 20 20 20 20 20").size(), 6U);
  EXPECT_EQ(Card(15).values[0], 0x10);
}

TEST_F(Replies, NoSamplesPerReportDoNotDivideByZero) {
  Identify(15, 7);
  for (const int samples : {0, -1}) {
    cards.With(15, [samples](PERIFCARD& card) {
      card.samplesPerReport = samples;
      card.values.fill(0);
    });
    EXPECT_EQ(TakeSamples(2, "10 10 10 10 10 10").size(), 6U);
  }
}

TEST_F(Replies, AnalogueCardClearedInTheMiddleAveragesOverTheSamplesCountedBefore) {
  Identify(15, 7);
  TakeSamples(3, "10 10 10 10 10 10");
  cards.With(15, [](PERIFCARD& card) { card.clearPerifCard(); });
  Identify(15, 7);
  EXPECT_EQ(Card(15).sampleCount, 3);
  TakeSamples(3, "10 10 10 10 10 10");
  EXPECT_EQ(TakeSamples(1, "00 00 00 00 00 00").size(), 6U);
  EXPECT_EQ(Card(15).values[0], 0x08);  // three samples of 16 over a count of six
}

// --- the lines ----------------------------------------------------------------------------------

TEST(ChangedInputLines, AreOneForEachOfSixteenFlagsInOrder) {
  PERIFCARD card;
  card.address = 0xC;
  for (std::size_t channel = 0; channel < 16; ++channel) {
    card.changeFlags[channel] = channel % 3 == 0 ? 1 : 0;
    card.values[channel] = static_cast<std::uint8_t>(0xF0 + channel);
  }
  EXPECT_EQ(ChangedInputLines(card),
            LINES({"aCb0dF0", "aCb3dF3", "aCb6dF6", "aCb9dF9", "aCbCdFC", "aCbFdFF"}));
}

}  // namespace
}  // namespace unit

}  // namespace vorn
