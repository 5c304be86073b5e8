#include "tests/support/GoldenHelp.h"
#include "vorn/master/Farewell.h"
#include "vorn/master/HelpTexts.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

using LINES = std::vector<std::string>;

TEST(HelpTexts, QuickHelpHasItsSixtyNineLinesSlipsIncluded) {
  EXPECT_EQ(QuickHelp().size(), 69U);
  EXPECT_EQ(LINES(QuickHelp().begin(), QuickHelp().end()), kQuickHelp);
}

TEST(HelpTexts, IoExamplesHaveTheirTwentyTwoLinesSlipsIncluded) {
  EXPECT_EQ(IoExamples().size(), 22U);
  EXPECT_EQ(LINES(IoExamples().begin(), IoExamples().end()), kIoExamples);
}

TEST(HelpTexts, BlankLinesAreOneBlankSoThatTheyAreNoEmptyMessages) {
  EXPECT_STREQ(QuickHelp()[1], " ");
  for (const char* const line : QuickHelp()) {
    EXPECT_GE(std::strlen(line), 1U);
  }
}

TEST(HelpTexts, FarewellIsTheDaemonsName) {
  EXPECT_STREQ(kFarewell, "VORN: Bye Bye...");
}

}  // namespace
