#include "sim/rack/Bytes.h"

#include <gtest/gtest.h>

namespace sim {
namespace {

TEST(Bytes, AreWrittenAsUpperCaseDigitsAndReadAsPairsOfEitherCase) {
  EXPECT_EQ(ToHex(Bytes{0x10, 0x05, 0x02, 0xFF, 0xFB}), "10 05 02 FF FB");
  EXPECT_EQ(ToHex(Bytes{}), "");
  EXPECT_EQ(ToHex(std::uint8_t{0x0A}), "0A");
  EXPECT_EQ(FromHex("10 05 02 fFfb"), (Bytes{0x10, 0x05, 0x02, 0xFF, 0xFB}));
  EXPECT_EQ(FromHex("  "), Bytes{});
  for (const char* text : {"1", "10 0", "1 0", "0x10", "GG"}) {
    EXPECT_FALSE(FromHex(text)) << text;
  }
}

TEST(Bytes, FramesABodyWithItsLength) {
  EXPECT_EQ(Frame({0x40, 0x6F, 0x9A}), (Bytes{0x03, 0x40, 0x6F, 0x9A}));
  EXPECT_EQ(Frame({}), Bytes{0x00});
  EXPECT_EQ(Frame(Bytes(255, 0x11)).front(), 0xFF);
}

}  // namespace
}  // namespace sim
