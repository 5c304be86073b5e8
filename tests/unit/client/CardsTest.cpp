#include "client/BadValue.h"
#include "client/Cards.h"
#include "tests/unit/client/BadValues.h"

#include <gtest/gtest.h>

#include <limits>
#include <set>

namespace client {
namespace {

TEST(ClientCards, HaveARowForEachKindAndParameter) {
  for (int kind = 0; kind <= static_cast<int>(CARD_KIND::kUnidentified); ++kind) {
    EXPECT_EQ(TypeOf(static_cast<CARD_KIND>(kind)).kind, static_cast<CARD_KIND>(kind));
  }
  for (int parameter = 0; parameter <= static_cast<int>(PARAMETER::kInitialLight); ++parameter) {
    EXPECT_EQ(RowOf(static_cast<PARAMETER>(parameter)).parameter,
              static_cast<PARAMETER>(parameter));
  }
}

TEST(ClientCards, AreFoundByWordAndByListedNameWhichNoTwoShare) {
  std::set<std::string> names;
  for (const CARD_TYPE& type : kCardTypes) {
    EXPECT_EQ(FindTypeByWord(type.word), &type);
    EXPECT_EQ(FindTypeByListedName(type.listedName), &type);
    EXPECT_TRUE(names.insert(type.word).second);
    EXPECT_TRUE(names.insert(type.listedName).second);
  }
  EXPECT_EQ(FindTypeByWord("servos"), nullptr);
  EXPECT_EQ(FindTypeByWord(""), nullptr);
  EXPECT_EQ(FindTypeByListedName("empty"), nullptr);
}

TEST(ClientCards, AKindThatIsNoneCountsAsUnidentified) {
  EXPECT_EQ(TypeOf(static_cast<CARD_KIND>(99)).kind, CARD_KIND::kUnidentified);
  EXPECT_THROW(RowOf(static_cast<PARAMETER>(99)), BAD_VALUE);
}

TEST(ClientCards, AnAddressIsOneUpperCaseDigit) {
  EXPECT_EQ(AddressDigit(0), '0');
  EXPECT_EQ(AddressDigit(9), '9');
  EXPECT_EQ(AddressDigit(10), 'A');
  EXPECT_EQ(AddressDigit(15), 'F');
  EXPECT_EQ(Refusal([] { AddressDigit(16); }), "address 16: a card has 0 to F");
  EXPECT_EQ(Refusal([] { AddressDigit(-1); }), "address -1: a card has 0 to F");
}

TEST(ClientCards, ADigitIsReadInEitherCase) {
  int digits = 0;
  for (int code = 0; code < 256; ++code) {
    digits += ReadDigit(static_cast<char>(code)) >= 0 ? 1 : 0;
  }
  EXPECT_EQ(digits, 10 + 6 + 6);
  EXPECT_EQ(ReadDigit('0'), 0);
  EXPECT_EQ(ReadDigit('9'), 9);
  EXPECT_EQ(ReadDigit('A'), 10);
  EXPECT_EQ(ReadDigit('F'), 15);
  EXPECT_EQ(ReadDigit('a'), 10);
  EXPECT_EQ(ReadDigit('f'), 15);
  EXPECT_EQ(ReadDigit('G'), -1);
}

TEST(ClientCards, AByteIsTwoUpperCaseDigits) {
  EXPECT_EQ(HexByte(0x00), "00");
  EXPECT_EQ(HexByte(0x0F), "0F");
  EXPECT_EQ(HexByte(0xFA), "FA");
}

TEST(ClientCards, APositionIsZeroToAHundredPercent) {
  EXPECT_DOUBLE_EQ(PercentOf(VALUE_FORM::kPosition, 0x00), 0.0);
  EXPECT_DOUBLE_EQ(PercentOf(VALUE_FORM::kPosition, 0x33), 20.0);
  EXPECT_DOUBLE_EQ(PercentOf(VALUE_FORM::kPosition, 0xFF), 100.0);
  EXPECT_EQ(RawOf(VALUE_FORM::kPosition, 0.0), 0x00);
  EXPECT_EQ(RawOf(VALUE_FORM::kPosition, 50.0), 0x80);  // 127.5
  EXPECT_EQ(RawOf(VALUE_FORM::kPosition, 49.9), 0x7F);
  EXPECT_EQ(RawOf(VALUE_FORM::kPosition, 100.0), 0xFF);
}

TEST(ClientCards, ASpeedIsMinusAHundredToAHundredPercent) {
  EXPECT_DOUBLE_EQ(PercentOf(VALUE_FORM::kSpeed, 0x00), 0.0);
  EXPECT_DOUBLE_EQ(PercentOf(VALUE_FORM::kSpeed, 0x7F), 100.0);
  EXPECT_DOUBLE_EQ(PercentOf(VALUE_FORM::kSpeed, 0x81), -100.0);
  EXPECT_DOUBLE_EQ(PercentOf(VALUE_FORM::kSpeed, 0x80), -100.0);
  EXPECT_DOUBLE_EQ(PercentOf(VALUE_FORM::kSpeed, 0xFF), -100.0 / 127);
  EXPECT_EQ(RawOf(VALUE_FORM::kSpeed, 0.0), 0x00);
  EXPECT_EQ(RawOf(VALUE_FORM::kSpeed, 100.0), 0x7F);
  EXPECT_EQ(RawOf(VALUE_FORM::kSpeed, -100.0), 0x81);
  EXPECT_EQ(RawOf(VALUE_FORM::kSpeed, -0.7), 0xFF);  // -0.889
}

TEST(ClientCards, EveryByteIsTheNearestToItsPercentage) {
  for (int raw = 0; raw < 256; ++raw) {
    const auto byte = static_cast<std::uint8_t>(raw);
    EXPECT_EQ(RawOf(VALUE_FORM::kPosition, PercentOf(VALUE_FORM::kPosition, byte)), byte);
    EXPECT_EQ(RawOf(VALUE_FORM::kSpeed, PercentOf(VALUE_FORM::kSpeed, byte)),
              byte == 0x80 ? 0x81 : byte);
  }
}

TEST(ClientCards, APercentageOutOfRangeIsRefused) {
  EXPECT_EQ(Refusal([] { RawOf(VALUE_FORM::kPosition, 120); }), "120 %: 0 to 100 %");
  EXPECT_EQ(Refusal([] { RawOf(VALUE_FORM::kPosition, -0.5); }), "-0.5 %: 0 to 100 %");
  EXPECT_EQ(Refusal([] { RawOf(VALUE_FORM::kSpeed, -101); }), "-101 %: -100 to 100 %");
  EXPECT_EQ(Refusal([] { RawOf(VALUE_FORM::kSpeed, 1e300); }), "1e+300 %: -100 to 100 %");
  const double none = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(Refusal([&] { RawOf(VALUE_FORM::kPosition, none); }), "nan %: 0 to 100 %");
  EXPECT_THROW(RawOf(VALUE_FORM::kSpeed, none), BAD_VALUE);
}

TEST(ClientCards, ValuesOfAnotherFormAreNoPercentages) {
  for (const VALUE_FORM form :
       {VALUE_FORM::kNone, VALUE_FORM::kActiveLow, VALUE_FORM::kActiveHigh, VALUE_FORM::kKeys}) {
    EXPECT_THROW(PercentOf(form, 0), BAD_VALUE);
    EXPECT_THROW(RawOf(form, 0), BAD_VALUE);
  }
}

TEST(ClientCards, ADigitalOutputIsOnWhereItsBitIsZero) {
  EXPECT_TRUE(IsOn(VALUE_FORM::kActiveLow, 0xFB, 2));
  EXPECT_FALSE(IsOn(VALUE_FORM::kActiveLow, 0xFB, 1));
  EXPECT_EQ(WithBit(VALUE_FORM::kActiveLow, 0xFF, 2, true), 0xFB);
  EXPECT_EQ(WithBit(VALUE_FORM::kActiveLow, 0xFB, 2, true), 0xFB);
  EXPECT_EQ(WithBit(VALUE_FORM::kActiveLow, 0x7B, 2, false), 0x7F);
}

TEST(ClientCards, ADigitalInputIsOnWhereItsBitIsOne) {
  EXPECT_TRUE(IsOn(VALUE_FORM::kActiveHigh, 0x40, 6));
  EXPECT_FALSE(IsOn(VALUE_FORM::kActiveHigh, 0x40, 7));
  EXPECT_EQ(WithBit(VALUE_FORM::kActiveHigh, 0x01, 7, true), 0x81);
  EXPECT_EQ(WithBit(VALUE_FORM::kActiveHigh, 0x81, 7, false), 0x01);
}

TEST(ClientCards, ABlockHasEightBitsThatAreOnOrOff) {
  EXPECT_EQ(Refusal([] { IsOn(VALUE_FORM::kActiveLow, 0, 8); }), "bit 8: a block has 0 to 7");
  EXPECT_THROW(WithBit(VALUE_FORM::kActiveHigh, 0, -1, true), BAD_VALUE);
  EXPECT_THROW(IsOn(VALUE_FORM::kPosition, 0, 0), BAD_VALUE);
  EXPECT_THROW(WithBit(VALUE_FORM::kKeys, 0, 0, true), BAD_VALUE);
}

}  // namespace
}  // namespace client
