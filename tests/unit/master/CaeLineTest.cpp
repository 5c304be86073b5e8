#include "vorn/master/CaeLine.h"

#include <gtest/gtest.h>

namespace vorn {

namespace {

CAE_LINE Line(const std::string& text) {
  return {text, "\r\n"};
}

TEST(CaeLine, IsAKeywordOnlyWithTheSeparatorAndNothingElse) {
  EXPECT_TRUE(Line("DRVVER\r\n").Is("DRVVER"));
  for (const char* const text : {"DRVVER", "DRVVER\r", "DRVVER\n", "DRVVER\n\r", " DRVVER\r\n",
                                 "DRVVER \r\n", "DRVVER\r\n\r\n", "drvver\r\n", "DRVVE\r\n", ""}) {
    EXPECT_FALSE(Line(text).Is("DRVVER")) << text;
  }
}

TEST(CaeLine, ContainsItsSeparatorAnywhere) {
  EXPECT_TRUE(Line("a\r\nb").ContainsSeparator());
  EXPECT_FALSE(Line("a\rb\n").ContainsSeparator());
  EXPECT_TRUE(CAE_LINE("", "").ContainsSeparator());
}

/// Address and channel: the digit, and as typed. What is wrong or missing is 0, and nothing.
TEST(CaeLine, HasItsAddressBehindAndItsChannelAndEndPositionBeforeTheFirstColon) {
  struct ROW {
    const char* text;
    int address;
    const char* addressText;
    int channel;
    const char* channelText;
    const char* endPosition;
  };
  const ROW rows[] = {
      {"SETSCB3:2=7F\r\n", 2, "2", 3, "3", "B"},
      {"SETSCBF:F\r\n", 15, "F", 15, "F", "B"},
      {"SETSCBx:A7:3\r\n", 10, "A", 0, "x", "B"},
      {"x:1 REBOOT:5\r\n", 1, "1", 0, "x", ""},
      {"REBOOT:a\r\n", 0, "a", 0, "T", "O"},
      {"REBOOT:f\r\n", 0, "f", 0, "T", "O"},
      {"REBOOT:G\r\n", 0, "G", 0, "T", "O"},
      {"REBOOT::\r\n", 0, ":", 0, "T", "O"},
      {"REBOOT:\r\n", 0, "\r", 0, "T", "O"},
      {"REBOOT:", 0, "", 0, "T", "O"},
      {"SETSC", 0, "", 0, "", ""},
      {":SETSC", 0, "S", 0, "", ""},
      {"3:SETSC", 0, "S", 3, "3", ""},
      {"", 0, "", 0, "", ""},
  };
  for (const ROW& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(Line(row.text).Address(), row.address);
    EXPECT_EQ(Line(row.text).AddressText(), row.addressText);
    EXPECT_EQ(Line(row.text).Channel(), row.channel);
    EXPECT_EQ(Line(row.text).ChannelText(), row.channelText);
    EXPECT_EQ(Line(row.text).EndPositionText(), row.endPosition);
  }
}

TEST(CaeLine, HasItsValueBlockStateAndNumberBehindTheFirstEqualsSign) {
  struct ROW {
    const char* text;
    int value;  // two digits
    int block;  // one
    const char* state;
    const char* number;  // up to the first character of the separator
  };
  const ROW rows[] = {
      {"SETANMASK:7=3F\r\n", 0x3F, 3, "3F", "3F"},
      {"SETANMASK:7=3FA\r\n", 0x3F, 3, "3F", "3FA"},
      {"a=12 b=34", 0x12, 1, "12", "12 b=34"},
      {"x=f1\r\n", 0x01, 0, "f1", "f1"},
      {"x=1f\r\n", 0x10, 1, "1f", "1f"},
      {"x=zz\r\n", 0x00, 0, "zz", "zz"},
      {"x=F\n", 0xF0, 15, "F\n", "F"},
      {"x=F", 0xF0, 15, "F", "F"},
      {"x=", 0, 0, "", ""},
      {"x", 0, 0, "", ""},
      {"x=ON\r\n", 0, 0, "ON", "ON"},
      {"x=OFF\r\n", 0x0F, 0, "OF", "OFF"},
      {"SPEED=5\n0\r\n", 0x50, 5, "5\n", "5"},
      {"SPEED=\r\n", 0, 0, "\r\n", ""},
      {"a=7SPEED=50\r\n", 0x70, 7, "7S", "7SPEED=50"},
  };
  for (const ROW& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(Line(row.text).Value(), row.value);
    EXPECT_EQ(Line(row.text).Block(), row.block);
    EXPECT_EQ(Line(row.text).StateText(), row.state);
    EXPECT_EQ(Line(row.text).NumberText(), row.number);
  }
  EXPECT_EQ(CAE_LINE("SPEED=50", "").NumberText(), "50");
}

}  // namespace

}  // namespace vorn
