#include "vorn/bus/CardTypes.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>

namespace {

struct GOLDEN_TYPE {
  const char* name;
  int state;
  int channels;
  std::size_t presetValues;
  int preset;
  int pollCount;
  int outputValues;
};

const GOLDEN_TYPE kUnidentified = {"UNIDENTIFIED", 3, 0, 0, 0, 0, 0};

const std::map<int, GOLDEN_TYPE>& GoldenTypes() {
  static const std::map<int, GOLDEN_TYPE> kTypes = {
      {0, {"EMPTY", 3, 0, 0, 0, 0, 0}},
      {3, {"16 channel DIGITAL OUTPUT", 0, 2, 2, 0xFF, 0, 2}},
      {4, {"16 channel DIGITAL INPUT", 1, 2, 0, 0, 2, 0}},
      {5, {"6 channel RC SERVO CONTROLLER", 0, 6, 6, 0x80, 0, 6}},
      {6, {"3 channel DC MOTOR CONTROLLER", 0, 6, 0, 0, 0, 4}},
      {7, {"6 channel ANALOGUE INPUT", 1, 6, 0, 0, 6, 0}},
      {8, {"KEYMX and ROTE CONTROLLER", 1, 1, 0, 0, 1, 0}},
      {9, {"ALPHANUMERIC LCD CONTROLLER", 0, 21, 0, 0, 0, 0}},
      {10, {"IR REMOTE CONTROLLER", 0, 1, 0, 0, 0, 0}},
      {255, {"CARD?", 3, 0, 0, 0, 0, 0}},
  };
  return kTypes;
}

TEST(CardTypes, EveryCodeHasItsRowAndAllOthersAreUnidentified) {
  for (int code = 0; code <= 255; ++code) {
    SCOPED_TRACE(code);
    const auto known = GoldenTypes().find(code);
    const GOLDEN_TYPE& golden = known == GoldenTypes().end() ? kUnidentified : known->second;
    const CARD_TYPE& type = FindCardType(static_cast<std::uint8_t>(code));
    EXPECT_STREQ(type.name, golden.name);
    EXPECT_EQ(type.state, golden.state);
    EXPECT_EQ(type.channels, golden.channels);
    EXPECT_EQ(type.presetValues, golden.presetValues);
    EXPECT_EQ(type.preset, golden.preset);
    EXPECT_EQ(type.pollCount, golden.pollCount);
    EXPECT_EQ(type.outputValues, golden.outputValues);
  }
}

TEST(CardTypes, EveryNameFitsTheRecordWithItsTerminatingZero) {
  for (int code = 0; code <= 255; ++code) {
    EXPECT_LT(std::strlen(FindCardType(static_cast<std::uint8_t>(code)).name), 40U);
  }
}

}  // namespace
