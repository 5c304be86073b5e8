#include "client/BadValue.h"
#include "client/IoLine.h"
#include "tests/unit/client/BadValues.h"

#include <gtest/gtest.h>

namespace client {
namespace {

TEST(IoLine, SetsABlockWithUpperCaseDigits) {
  EXPECT_EQ(BlockLine(5, 1, 0xFB), "a5b1dFB");
  EXPECT_EQ(BlockLine(15, 7, 0x0A), "aFb7d0A");
}

TEST(IoLine, RefusesABlockThatACardDoesNotHave) {
  EXPECT_EQ(Refusal([] { BlockLine(5, 8, 0); }), "block 8: a card has 0 to 7");
  EXPECT_EQ(Refusal([] { BlockLine(5, -1, 0); }), "block -1: a card has 0 to 7");
  EXPECT_EQ(Refusal([] { BlockLine(16, 0, 0); }), "address 16: a card has 0 to F");
}

TEST(IoLine, TellsADisplayWhatToDo) {
  EXPECT_EQ(LcdLine(14, LCD_ACTION::kClear), "aElCL");
  EXPECT_EQ(LcdLine(14, LCD_ACTION::kLightOn), "aElLO");
  EXPECT_EQ(LcdLine(14, LCD_ACTION::kLightOff), "aElLF");
  EXPECT_EQ(LcdLine(14, LCD_ACTION::kCursorOn), "aElCO");
  EXPECT_EQ(LcdLine(14, LCD_ACTION::kCursorOff), "aElCF");
  EXPECT_EQ(LcdLine(14, LCD_ACTION::kBlinkOn), "aElBO");
  EXPECT_EQ(LcdLine(14, LCD_ACTION::kBlinkOff), "aElBF");
  EXPECT_THROW(LcdLine(14, static_cast<LCD_ACTION>(99)), BAD_VALUE);
  EXPECT_THROW(LcdLine(-1, LCD_ACTION::kClear), BAD_VALUE);
}

TEST(IoLine, ShowsATextAtAPlaceCountedInHexadecimal) {
  EXPECT_EQ(LcdTextLine(14, 3, 1, "Tail of the cat"), "aElPAp0301tTail of the cat");
  EXPECT_EQ(LcdTextLine(0, 19, 255, "x"), "a0lPAp13FFtx");
  EXPECT_EQ(LcdTextLine(0, 0, 0, ""), "a0lPAp0000t");
  EXPECT_EQ(LcdTextLine(0, 0, 0, "\xB0 \xFF"), "a0lPAp0000t\xB0 \xFF");
}

TEST(IoLine, RefusesATextThatIsTooLongForADisplay) {
  EXPECT_EQ(LcdTextLine(0, 0, 0, std::string(31, 'x')).size(), 11U + 31U);
  EXPECT_EQ(Refusal([] { LcdTextLine(0, 0, 0, std::string(32, 'x')); }),
            "LCD text of 32 characters: at most 31");
  EXPECT_EQ(Refusal([] { LcdTextLine(0, 0, 0, std::string(40, 'x')); }),
            "LCD text of 40 characters: at most 31");
}

TEST(IoLine, RefusesATextThatWouldEndItsLine) {
  EXPECT_THROW(LcdTextLine(0, 0, 0, "a\rb"), BAD_VALUE);
  EXPECT_THROW(LcdTextLine(0, 0, 0, "a\nb"), BAD_VALUE);
  EXPECT_THROW(LcdTextLine(0, 0, 0, std::string_view("a\0b", 3)), BAD_VALUE);
}

TEST(IoLine, RefusesAPlaceOfMoreThanTwoDigits) {
  EXPECT_EQ(Refusal([] { LcdTextLine(0, 256, 0, "x"); }), "column 256: 0 to 255");
  EXPECT_EQ(Refusal([] { LcdTextLine(0, 0, -1, "x"); }), "row -1: 0 to 255");
}

TEST(IoLine, SendsAStreamOfBytes) {
  EXPECT_EQ(IrLine(9, {'C', 'O', 0x00, 0xFF}), "a9sHS434F00FF");
  EXPECT_EQ(IrLine(9, std::vector<std::uint8_t>(23, 0xA5)).size(), 5U + 46U);
}

TEST(IoLine, RefusesAStreamThatIsEmptyOrTooLong) {
  EXPECT_EQ(Refusal([] { IrLine(9, {}); }), "IR stream of 0 bytes: 1 to 23");
  EXPECT_EQ(Refusal([] { IrLine(9, std::vector<std::uint8_t>(24, 0)); }),
            "IR stream of 24 bytes: 1 to 23");
}

TEST(IoLine, LeavesATypedLineAsItIs) {
  EXPECT_EQ(TypedIoLine(" a5b1dfb "), " a5b1dfb ");
  EXPECT_EQ(TypedIoLine(std::string(253, 'x')).size(), 253U);
}

TEST(IoLine, RefusesATypedLineThatIsNotOne) {
  EXPECT_EQ(Refusal([] { TypedIoLine(""); }), "an empty line: vorn skips it");
  EXPECT_EQ(Refusal([] { TypedIoLine(std::string(254, 'x')); }),
            "line of 254 characters: at most 253");
  EXPECT_THROW(TypedIoLine("a5b1dFF\r\n"), BAD_VALUE);
  EXPECT_THROW(TypedIoLine("a5b1dFF\na5b0dFF"), BAD_VALUE);
  EXPECT_THROW(TypedIoLine("a\rb"), BAD_VALUE);
  EXPECT_THROW(TypedIoLine(std::string_view("a\0b", 3)), BAD_VALUE);
}

TEST(IoLine, ReadsAnInputChange) {
  const auto change = ReadBlockLine("aFb3d2E");
  ASSERT_TRUE(change);
  EXPECT_EQ(change->address, 15);
  EXPECT_EQ(change->block, 3);
  EXPECT_EQ(change->value, 0x2E);
}

TEST(IoLine, ReadsBackEveryBlockThatItSets) {
  for (int address = 0; address < kAddresses; ++address) {
    for (int value = 0; value < 256; ++value) {
      const auto read =
          ReadBlockLine(BlockLine(address, value % 8, static_cast<std::uint8_t>(value)));
      ASSERT_TRUE(read);
      EXPECT_EQ(read->address, address);
      EXPECT_EQ(read->block, value % 8);
      EXPECT_EQ(read->value, value);
    }
  }
}

TEST(IoLine, ReadsNothingInAnyOtherLine) {
  for (const char* const line : {"", "a", "a3b0d4", "a3b0d400", "A3b0d40", "a3B0d40", "a3b0D40",
                                 "a3b0d4g", "afb0d40", "a3b0dfb", "aGb0d40", "a3bxd40", " a3b0d40",
                                 "a3b0d40 ", "aElCLxx", "bbbbbbb", "aabbdd\xFF"}) {
    EXPECT_FALSE(ReadBlockLine(line)) << line;
  }
  EXPECT_FALSE(ReadBlockLine(std::string_view("a3b0d4\0", 7)));
}

}  // namespace
}  // namespace client
