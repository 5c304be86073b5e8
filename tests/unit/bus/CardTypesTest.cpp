// The rows of the table are those of docs/card-bus.md; tests/docs compares them for every code.

#include "vorn/bus/CardTypes.h"

#include <gtest/gtest.h>

#include <cstring>

namespace vorn {

namespace {

TEST(CardTypes, EveryNameFitsTheRecordWithItsTerminatingZero) {
  for (int code = 0; code <= 255; ++code) {
    EXPECT_LT(std::strlen(FindCardType(static_cast<std::uint8_t>(code)).name), 40U);
  }
}

TEST(CardTypes, ACodeThatIsInNoRowIsUnidentified) {
  for (const int code : {1, 2, 42, 254}) {
    EXPECT_STREQ(FindCardType(static_cast<std::uint8_t>(code)).name, "UNIDENTIFIED");
  }
}

}  // namespace

}  // namespace vorn
