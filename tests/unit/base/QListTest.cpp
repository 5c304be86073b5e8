#include "vorn/base/QList.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace vorn {

namespace {

QList Bytes(const std::string& bytes) {
  return {bytes.begin(), bytes.end()};
}

/// What the call prints to standard output.
template <class CALL>
std::string Printed(CALL call) {
  testing::internal::CaptureStdout();
  call();
  std::fflush(stdout);
  return testing::internal::GetCapturedStdout();
}

}  // namespace

// --- hex --------------------------------------------------------------------------------------

TEST(HexCharToByte, GivesTheValueOfUpperCaseDigitsAndZeroForAllElse) {
  const std::string digits = "0123456789ABCDEF";
  for (int code = 0; code < 256; ++code) {
    const auto position = digits.find(static_cast<char>(code));
    const auto expected = position == std::string::npos ? 0U : position;
    EXPECT_EQ(HexCharToByte(static_cast<char>(code)), expected) << code;
  }
}

TEST(HexNum2Byte, JoinsAHighAndALowDigitAndCountsOtherCharactersAsZero) {
  EXPECT_EQ(HexNum2Byte('3', 'F'), 63);
  EXPECT_EQ(HexNum2Byte('F', 'F'), 255);
  EXPECT_EQ(HexNum2Byte('z', 'a'), 0);
  EXPECT_EQ(HexNum2Byte('f', 'F'), 15);
  EXPECT_EQ(HexNum2Byte('F', 'f'), 240);
}

TEST(ConvertHexStr2Byte, TakesTheFirstTwoCharactersOrOneAsTheLowDigit) {
  EXPECT_EQ(Convert_HexStr2Byte(""), 0);
  EXPECT_EQ(Convert_HexStr2Byte("7"), 7);
  EXPECT_EQ(Convert_HexStr2Byte("f"), 0);
  EXPECT_EQ(Convert_HexStr2Byte("1A"), 26);
  EXPECT_EQ(Convert_HexStr2Byte("1A9FFFFFFFFFFFFFFFFF"), 26);
}

// --- to byte lists ----------------------------------------------------------------------------

TEST(ConvertBinBuff2QList, TakesAsManyBytesAsTheFirstSays) {
  std::array<std::uint8_t, 256> buffer = {3, 0, 'A', 0, 'B'};
  EXPECT_EQ(Convert_BinBuff2QList(buffer.data()), Bytes(std::string("\0A\0", 3)));
  buffer[0] = 0;
  EXPECT_TRUE(Convert_BinBuff2QList(buffer.data()).empty());
  buffer.fill(0xEE);
  buffer[0] = 255;
  EXPECT_EQ(Convert_BinBuff2QList(buffer.data()), Bytes(std::string(255, '\xEE')));
}

TEST(ConvertCharBuff2QList, TakesTheBytesBeforeTheFirstZero) {
  EXPECT_EQ(Convert_CharBuff2QList("AB\0C"), Bytes("AB"));
  EXPECT_EQ(Convert_CharBuff2QList("\xFF\x01"), Bytes("\xFF\x01"));
  EXPECT_TRUE(Convert_CharBuff2QList("").empty());
}

TEST(ConvertString2QList, TakesTheBytesUpToAZeroByteAndAtLeastOne) {
  EXPECT_EQ(Convert_String2QList("HELP\r\n"), Bytes("HELP\r\n"));
  EXPECT_EQ(Convert_String2QList("\x80\xFF"), Bytes("\x80\xFF"));
  EXPECT_EQ(Convert_String2QList(std::string("A\0B", 3)), Bytes("A"));
  EXPECT_EQ(Convert_String2QList(std::string("\0B", 2)), QList{'\0'});
  EXPECT_EQ(Convert_String2QList(""), QList{'\0'});
}

TEST(ConvertString2QList, TakesAtMost999Bytes) {
  EXPECT_EQ(Convert_String2QList(std::string(999, 'x')).size(), 999U);
  EXPECT_EQ(Convert_String2QList(std::string(1000, 'x')), Bytes(std::string(999, 'x')));
  EXPECT_EQ(Convert_String2QList(std::string(100'000, 'x')).size(), 999U);
}

// --- to texts and buffers ---------------------------------------------------------------------

TEST(ConvertCharBuff2String, TakesTheTextBeforeTheFirstZero) {
  EXPECT_EQ(Convert_CharBuff2String("AB\0C"), "AB");
  EXPECT_EQ(Convert_CharBuff2String(""), "");
  EXPECT_EQ(Convert_CharBuff2String("100%s %n"), "100%s %n");
}

TEST(ConvertCharBuff2String, TakesAtMost999Bytes) {
  EXPECT_EQ(Convert_CharBuff2String(std::string(999, 'x').c_str()), std::string(999, 'x'));
  EXPECT_EQ(Convert_CharBuff2String(std::string(1000, 'x').c_str()), std::string(999, 'x'));
}

TEST(ConvertQList2BinBuff, WritesTheBytesAndNothingElse) {
  std::array<std::uint8_t, 5> buffer = {1, 2, 3, 4, 5};
  Convert_QList2BinBuff({}, buffer.data());
  EXPECT_EQ(buffer[0], 1);
  Convert_QList2BinBuff(Bytes(std::string("\xFF\0A", 3)), buffer.data());
  EXPECT_EQ(buffer, (std::array<std::uint8_t, 5>{0xFF, 0, 'A', 4, 5}));
}

TEST(ConvertQList2String, TakesTheTextBeforeTheFirstZero) {
  EXPECT_EQ(Convert_QList2String(Bytes(std::string("A\0B", 3))), "A");
  EXPECT_EQ(Convert_QList2String(Bytes("HELP\r\n")), "HELP\r\n");
  EXPECT_EQ(Convert_QList2String({}), "");
}

TEST(ConvertQList2String, TakesAtMost999Bytes) {
  EXPECT_EQ(Convert_QList2String(Bytes(std::string(999, 'x'))), std::string(999, 'x'));
  EXPECT_EQ(Convert_QList2String(Bytes(std::string(1000, 'x'))), std::string(999, 'x'));
}

TEST(QListConversions, LeaveTheListThatIsPassedAsItIs) {
  const QList list = Bytes("AB");
  std::array<std::uint8_t, 2> buffer{};
  Convert_QList2BinBuff(list, buffer.data());
  EXPECT_EQ(Convert_QList2String(list), "AB");
  EXPECT_EQ(list, Bytes("AB"));
}

// --- printers ---------------------------------------------------------------------------------

TEST(PrintBuffer, PrintsEachByteAndItsValueWithADotUpTo31) {
  const std::array<std::uint8_t, 6> buffer = {'A', 13, 0, 31, 32, 255};
  EXPECT_EQ(Printed([&] { PrintBuffer(buffer.data(), buffer.size()); }),
            "Buffer content: A:65|.:13|.:0|.:31| :32|\xFF:255|\n");
  EXPECT_EQ(Printed([] { PrintBuffer(nullptr, 0); }), "Buffer content: \n");
}

TEST(PrintBufferID, PrintsTheCaptionFirst) {
  const std::uint8_t byte = 'A';
  EXPECT_EQ(Printed([&] { PrintBufferID(&byte, 1, "100%s"); }), "100%s Buffer content: A:65|\n");
}

TEST(PrintQList, PrintsTheSizeAndTheContent) {
  EXPECT_EQ(Printed([] { PrintQList(Bytes("A\r")); }), "List size: 2\nContent: A:65|.:13|\n");
  EXPECT_EQ(Printed([] { PrintQList({}); }), "List size: 0\nContent: \n");
}

TEST(PrintQList, PrintsAListOfOver1000Bytes) {
  std::string items;
  for (int i = 0; i < 1500; ++i) {
    items += "x:120|";
  }
  EXPECT_EQ(Printed([] { PrintQList(QList(1500, 'x')); }),
            "List size: 1500\nContent: " + items + "\n");
}

}  // namespace vorn
