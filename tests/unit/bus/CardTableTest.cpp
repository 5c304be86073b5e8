#include "vorn/bus/CardTable.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>

namespace vorn {

namespace {

TEST(CardTable, HasSeventeenClearedRecordsThatKnowTheirAddress) {
  CARD_TABLE cards;
  EXPECT_EQ(CARD_TABLE::kRecords, 17U);
  for (std::size_t i = 0; i < 17; ++i) {
    SCOPED_TRACE(i);
    const PERIFCARD card = cards.With(i, [](const PERIFCARD& record) { return record; });
    EXPECT_EQ(card.stateWord, 3);
    EXPECT_EQ(card.typeCode, 0);
    EXPECT_EQ(card.pollFlag, 0);
    EXPECT_EQ(card.samplesPerReport, 6);
    EXPECT_STREQ(card.name.data(), "EMPTY");
    EXPECT_TRUE(card.pollFrame.empty());
    EXPECT_EQ(card.address, i);
  }
}

TEST(CardTable, RefusesAnAddressBeyondItsRecords) {
  CARD_TABLE cards;
  EXPECT_THROW(cards.With(17, [](PERIFCARD&) {}), std::out_of_range);
  // The lock is free again.
  EXPECT_EQ(cards.With(16, [](const PERIFCARD& card) { return card.stateWord; }), 3);
}

TEST(CardTable, KeepsWhatAnActionHasSet) {
  CARD_TABLE cards;
  cards.With(4, [](PERIFCARD& card) { card.pollFlag = 1; });
  EXPECT_EQ(cards.With(4, [](const PERIFCARD& card) { return card.pollFlag; }), 1);
  EXPECT_EQ(cards.With(5, [](const PERIFCARD& card) { return card.pollFlag; }), 0);
}

TEST(CardTable, ShowsAThreadNoHalfWrittenRecord) {
  constexpr int kRounds = 2000;
  CARD_TABLE cards;
  std::thread writer([&cards] {
    for (int i = 1; i <= kRounds; ++i) {
      cards.With(2, [i](PERIFCARD& card) {
        card.values.fill(static_cast<std::uint8_t>(i));
        card.pollFrame.assign(static_cast<std::size_t>(i % 5), 'x');
        card.changeFlags[0] = static_cast<std::uint8_t>(i % 5);
      });
    }
  });
  for (int i = 0; i < kRounds; ++i) {
    const PERIFCARD card = cards.With(2, [](const PERIFCARD& record) { return record; });
    EXPECT_EQ(card.values.front(), card.values.back());
    EXPECT_EQ(card.pollFrame.size(), card.changeFlags[0]);
  }
  writer.join();
}

}  // namespace

}  // namespace vorn
