#include "vorn/bus/PerifCard.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace vorn {

namespace {

/// A record in which every field differs from a cleared one.
PERIFCARD UsedCard() {
  PERIFCARD card;
  card.stateWord = 1;
  card.channelCount = 6;
  card.address = 0xB;
  card.typeCode = 7;
  card.SetName("6 channel ANALOGUE INPUT");
  card.values.fill(0x11);
  card.changeFlags.fill(1);
  card.queryBytes.fill(0x51);
  card.pollFlag = 1;
  card.analogueSums.fill(1000);
  card.sampleCount = 4;
  card.samplesPerReport = 9;
  card.pollFrame = {0x20, 0x0B, 6};
  return card;
}

template <class FIELD>
bool AllZero(const FIELD& field) {
  return std::all_of(field.begin(), field.end(), [](auto value) { return value == 0; });
}

TEST(PerifCard, ClearingGivesAnEmptySlot) {
  PERIFCARD card = UsedCard();
  card.clearPerifCard();
  EXPECT_EQ(card.stateWord, 3);
  EXPECT_EQ(card.channelCount, 0);
  EXPECT_EQ(card.typeCode, 0);
  EXPECT_STREQ(card.name.data(), "EMPTY");
  EXPECT_TRUE(AllZero(card.values));
  EXPECT_TRUE(AllZero(card.changeFlags));
  EXPECT_EQ(card.pollFlag, 0);
  EXPECT_TRUE(AllZero(card.analogueSums));
  EXPECT_EQ(card.samplesPerReport, 6);
  EXPECT_TRUE(card.pollFrame.empty());
}

TEST(PerifCard, ClearingLeavesAddressQueryBytesAndSampleCount) {
  PERIFCARD card = UsedCard();
  card.clearPerifCard();
  EXPECT_EQ(card.address, 0xB);
  EXPECT_EQ(card.queryBytes, UsedCard().queryBytes);
  EXPECT_EQ(card.sampleCount, 4);
}

TEST(PerifCard, HoldsSixteenValuesFlagsAndQueryBytesAndSixSums) {
  const PERIFCARD card;
  EXPECT_GE(card.values.size(), 16U);
  EXPECT_GE(card.changeFlags.size(), 16U);
  EXPECT_GE(card.queryBytes.size(), 16U);
  EXPECT_EQ(card.analogueSums.size(), 6U);
  EXPECT_EQ(card.name.size(), 40U);
}

TEST(PerifCard, CutsANameToWhatTheRecordHolds) {
  PERIFCARD card;
  card.SetName(std::string(39, 'n').c_str());
  EXPECT_EQ(std::string(card.name.data()), std::string(39, 'n'));
  card.SetName(std::string(40, 'm').c_str());
  EXPECT_EQ(std::string(card.name.data()), std::string(39, 'm'));
}

TEST(FormatInputLine, IsUpperCaseHexWithOneDigitForAddressAndBlockAndTwoForTheValue) {
  EXPECT_EQ(FormatInputLine(3, 1, 0x7F), "a3b1d7F");
  EXPECT_EQ(FormatInputLine(0, 0, 0), "a0b0d00");
  EXPECT_EQ(FormatInputLine(15, 15, 0xAB), "aFbFdAB");
  EXPECT_EQ(FormatInputLine(10, 5, 0x0C), "aAb5d0C");
}

}  // namespace

}  // namespace vorn
