#include "vorn/base/Values.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace vorn {

namespace {

constexpr std::int32_t kMin = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t kMax = std::numeric_limits<std::int32_t>::max();

}  // namespace

TEST(Atol, ReadsTheLeadingDecimalNumberOrGivesZeroAndSaturatesAt32Bits) {
  const std::vector<std::pair<std::string, std::int32_t>> rows = {
      {"5000", 5000},
      {"0", 0},
      {"007", 7},
      // white space and a sign before it
      {" \t\r\n12", 12},
      {"-12", -12},
      {"  +12", 12},
      // whatever else behind it
      {"12abc", 12},
      {"12.9", 12},
      {"1 2", 1},
      {std::string("1\0002", 3), 1},
      // always decimal
      {"0x10", 0},
      {"010", 10},
      // no number
      {"", 0},
      {"abc", 0},
      {"-", 0},
      {"+", 0},
      {" ", 0},
      {"- 5", 0},
      {"--5", 0},
      // limits
      {"2147483647", kMax},
      {"2147483648", kMax},
      {"4294967296", kMax},
      {"99999999999999999999999", kMax},
      {"-2147483648", kMin},
      {"-2147483649", kMin},
      {"-99999999999999999999999", kMin}};
  for (const auto& [text, number] : rows) {
    EXPECT_EQ(ATOL(text), number) << text;
  }
}

TEST(Atob, IsTrueForThreeSpellingsOnly) {
  for (const char* const text : {"True", "true", "TRUE"}) {
    EXPECT_TRUE(ATOB(text)) << text;
  }
  for (const char* const text : {"", "1", "yes", "tRUE", "TrUe", "TRUE ", " TRUE", "FALSE", "on"}) {
    EXPECT_FALSE(ATOB(text)) << text;
  }
}

TEST(Itoa, WritesDecimalWithoutLeadingZeros) {
  EXPECT_EQ(ITOA(0), "0");
  EXPECT_EQ(ITOA(5000), "5000");
  EXPECT_EQ(ITOA(-49), "-49");
  EXPECT_EQ(ITOA(kMax), "2147483647");
  EXPECT_EQ(ITOA(kMin), "-2147483648");
}

TEST(Btoa, WritesUpperCase) {
  EXPECT_EQ(BTOA(true), "TRUE");
  EXPECT_EQ(BTOA(false), "FALSE");
}

TEST(SpeedToDelay, GivesTheDocumentedDelays) {
  EXPECT_EQ(SpeedToDelayUs(1), 5000);
  EXPECT_EQ(SpeedToDelayUs(2), 4949);
  EXPECT_EQ(SpeedToDelayUs(50), 2525);
  EXPECT_EQ(SpeedToDelayUs(99), 51);
  EXPECT_EQ(SpeedToDelayUs(100), 1);
}

TEST(SpeedToDelay, IsNotRangeChecked) {
  EXPECT_EQ(SpeedToDelayUs(0), 5050);
  EXPECT_EQ(SpeedToDelayUs(101), -49);
  EXPECT_EQ(SpeedToDelayUs(-1), 5101);
}

TEST(SpeedToDelay, TruncatesTowardZeroForEveryPercentage) {
  for (std::int32_t percent = 0; percent <= 200; ++percent) {
    EXPECT_EQ(SpeedToDelayUs(percent), (500000 - 4999 * percent) / 99) << percent;
  }
}

TEST(SpeedToDelay, SaturatesAt32Bits) {
  EXPECT_EQ(SpeedToDelayUs(kMin), kMax);
  EXPECT_EQ(SpeedToDelayUs(kMax), kMin);
}

TEST(SpeedToDelay, HasTheSevenDigitsOfSinglePrecisionFarOutsideItsRange) {
  // In double precision, or in integers, the results in the comments.
  EXPECT_EQ(SpeedToDelayUs(3563), -174862);         // -174863
  EXPECT_EQ(SpeedToDelayUs(-3367), 175066);         // 175067
  EXPECT_EQ(SpeedToDelayUs(1'000'000), -50489896);  // -50489898
  EXPECT_EQ(SpeedToDelayUs(-1'000'000), 50500004);  // 50500000
}

TEST(SpeedToDelay, SaturatesFromTheFirstResultOnThatNeeds33Bits) {
  // Between neighbours of single precision lie 128 below the limits of 32 bits.
  EXPECT_EQ(SpeedToDelayUs(-42'528'578), kMax - 127);
  for (const std::int32_t percent : {-42'528'579, -42'528'580, -42'528'582, -50'000'000}) {
    EXPECT_EQ(SpeedToDelayUs(percent), kMax) << percent;
  }
  EXPECT_EQ(SpeedToDelayUs(42'528'781), kMin + 128);
  for (const std::int32_t percent : {42'528'782, 42'528'786, 42'528'788, 50'000'000}) {
    EXPECT_EQ(SpeedToDelayUs(percent), kMin) << percent;
  }
}

}  // namespace vorn
