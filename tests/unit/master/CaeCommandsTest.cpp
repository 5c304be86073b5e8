// The operator's line and its parameters, and the table of commands.

#include "vorn/master/CaeCommands.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

CAE_LINE Line(const std::string& text) {
  return {text, "\r\n"};
}

// --- the line -----------------------------------------------------------------------------------

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

TEST(CaeLine, AddressIsTheDigitBehindTheFirstColon) {
  EXPECT_EQ(Line("REBOOT:5\r\n").Address(), 5);
  EXPECT_EQ(Line("REBOOT:F\r\n").Address(), 15);
  EXPECT_EQ(Line("REBOOT:A7:3\r\n").Address(), 10);
  EXPECT_EQ(Line("x:1 REBOOT:5\r\n").Address(), 1);
  EXPECT_EQ(Line("REBOOT:A\r\n").AddressText(), "A");
}

TEST(CaeLine, AddressThatIsNoUpperCaseHexDigitIsZeroAndEchoedAsTyped) {
  for (const char* const typed : {"a", "f", "G", "z", "-", ":", "\r"}) {
    EXPECT_EQ(Line(std::string("REBOOT:") + typed + "\r\n").Address(), 0) << typed;
    EXPECT_EQ(Line(std::string("REBOOT:") + typed + "\r\n").AddressText(), typed);
  }
}

TEST(CaeLine, AddressThatIsMissingIsZeroAndEchoedAsNothing) {
  EXPECT_EQ(Line("REBOOT:").Address(), 0);
  EXPECT_EQ(Line("REBOOT:").AddressText(), "");
  EXPECT_EQ(Line("REBOOT").Address(), 0);
  EXPECT_EQ(Line("REBOOT").AddressText(), "");
}

TEST(CaeLine, ValueIsTheTwoDigitsBehindTheFirstEqualsSign) {
  EXPECT_EQ(Line("SETANMASK:7=3F\r\n").Value(), 0x3F);
  EXPECT_EQ(Line("SETANMASK:7=3FA\r\n").Value(), 0x3F);
  EXPECT_EQ(Line("a=12 b=34").Value(), 0x12);
}

TEST(CaeLine, ValueDigitsThatAreWrongOrMissingCountAsZero) {
  EXPECT_EQ(Line("x=f1\r\n").Value(), 0x01);
  EXPECT_EQ(Line("x=1f\r\n").Value(), 0x10);
  EXPECT_EQ(Line("x=zz\r\n").Value(), 0x00);
  EXPECT_EQ(Line("x=7\r\n").Value(), 0x70);
  EXPECT_EQ(Line("x=7").Value(), 0x70);
  EXPECT_EQ(Line("x=").Value(), 0x00);
  EXPECT_EQ(Line("x").Value(), 0x00);
}

TEST(CaeLine, BlockIsTheOneDigitBehindTheFirstEqualsSign) {
  EXPECT_EQ(Line("GETLASTINPST:3=5\r\n").Block(), 5);
  EXPECT_EQ(Line("GETLASTINPST:3=F\r\n").Block(), 15);
  EXPECT_EQ(Line("GETLASTINPST:3=a\r\n").Block(), 0);
  EXPECT_EQ(Line("GETLASTINPST:3=").Block(), 0);
  EXPECT_EQ(Line("GETLASTINPST:3").Block(), 0);
}

TEST(CaeLine, StateIsTheTwoCharactersBehindTheFirstEqualsSign) {
  EXPECT_EQ(Line("x=ON\r\n").StateText(), "ON");
  EXPECT_EQ(Line("x=OFF\r\n").StateText(), "OF");
  EXPECT_EQ(Line("x=O").StateText(), "O");
  EXPECT_EQ(Line("x=").StateText(), "");
  EXPECT_EQ(Line("x").StateText(), "");
}

TEST(CaeLine, NumberGoesUpToTheFirstCharacterOfTheSeparator) {
  EXPECT_EQ(Line("SPEED=50\r\n").NumberText(), "50");
  EXPECT_EQ(Line("SPEED=50\n").NumberText(), "50");
  EXPECT_EQ(Line("SPEED=50").NumberText(), "50");
  EXPECT_EQ(Line("SPEED=5\n0\r\n").NumberText(), "5");
  EXPECT_EQ(Line("SPEED=\r\n").NumberText(), "");
  EXPECT_EQ(Line("SPEED=").NumberText(), "");
  EXPECT_EQ(Line("SPEED").NumberText(), "");
  EXPECT_EQ(Line("a=7SPEED=50\r\n").NumberText(), "7SPEED=50");
  EXPECT_EQ(CAE_LINE("SPEED=50", "").NumberText(), "50");
}

TEST(CaeLine, ChannelAndEndPositionStandBeforeTheFirstColon) {
  EXPECT_EQ(Line("SETSCB3:2=7F\r\n").Channel(), 3);
  EXPECT_EQ(Line("SETSCB3:2=7F\r\n").ChannelText(), "3");
  EXPECT_EQ(Line("SETSCB3:2=7F\r\n").EndPositionText(), "B");
  EXPECT_EQ(Line("SETSCBF:2=7F\r\n").Channel(), 15);
  EXPECT_EQ(Line("SETSCBx:2=7F\r\n").Channel(), 0);
}

TEST(CaeLine, ChannelAndEndPositionThatAreMissingAreZeroAndNothing) {
  EXPECT_EQ(Line("SETSC").Channel(), 0);
  EXPECT_EQ(Line("SETSC").ChannelText(), "");
  EXPECT_EQ(Line("SETSC").EndPositionText(), "");
  EXPECT_EQ(Line(":SETSC").ChannelText(), "");
  EXPECT_EQ(Line(":SETSC").EndPositionText(), "");
  EXPECT_EQ(Line("3:SETSC").ChannelText(), "3");
  EXPECT_EQ(Line("3:SETSC").EndPositionText(), "");
}

// --- the table ----------------------------------------------------------------------------------

TEST(CaeCommands, AreTestedInTheManualsOrder) {
  std::vector<std::string> keywords;
  for (const CAE_COMMAND& command : CaeCommands()) {
    keywords.emplace_back(command.keyword);
  }
  EXPECT_EQ(keywords, std::vector<std::string>(
                          {"VALAMI",        "SPEED=",        "DISABLEPOLL",   "DRVVER",
                           "LCDSELFTEST:",  "LCDINITLIGHT:", "REBOOT:",       "SETANMASK:",
                           "GETANMASK:",    "STOREANMASK:",  "STORESRVPOS:",  "MOVESTRPOS:",
                           "SETSC",         "GETSC",         "SETMSR",        "GETMSR",
                           "STOREMSRS",     "POLLON:",       "POLLOFF:",      "ENABLEPOLL",
                           "POLLSTATE",     "DISCOVER",      "FORCEDISCOVER", "EXIT",
                           "GETLASTINPST:", "HELP",          "IOEXAMPLES"}));
}

TEST(CaeCommands, AskForTheWholeLineOrForTheSeparatorOrForNeither) {
  const std::vector<std::string> exact = {"VALAMI",    "DISABLEPOLL", "DRVVER",        "ENABLEPOLL",
                                          "POLLSTATE", "DISCOVER",    "FORCEDISCOVER", "EXIT",
                                          "HELP",      "IOEXAMPLES"};
  for (const CAE_COMMAND& command : CaeCommands()) {
    const std::string keyword = command.keyword;
    SCOPED_TRACE(keyword);
    const bool isExact = std::find(exact.begin(), exact.end(), keyword) != exact.end();
    const bool alone = keyword == "SPEED=";
    // VALAMI is compared, and stays unknown.
    EXPECT_EQ(command.Matches(Line(keyword + "\r\n")), keyword != "VALAMI");
    EXPECT_EQ(command.Matches(Line(keyword)), alone);
    EXPECT_EQ(command.Matches(Line("x" + keyword + "x\r\n")), !isExact);
    EXPECT_EQ(command.Matches(Line("\r\n" + keyword)), !isExact);
    EXPECT_FALSE(command.Matches(Line(keyword.substr(1) + "\r\n")));
  }
}

}  // namespace
