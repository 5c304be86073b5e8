// The texts stand in docs/cae.md, whole; tests/docs compares them.

#include "tests/support/CaeVectors.h"
#include "vorn/master/DaemonControl.h"
#include "vorn/master/HelpTexts.h"

#include <gtest/gtest.h>

#include <cstring>

namespace vorn {

namespace {

TEST(HelpTexts, HaveTheirLinesOfWhichNoneIsAnEmptyMessage) {
  EXPECT_EQ(QuickHelp().size(), support::cae::kHelpLines);
  EXPECT_EQ(IoExamples().size(), support::cae::kExampleLines);
  EXPECT_STREQ(QuickHelp()[1], " ");
  for (const char* const line : QuickHelp()) {
    EXPECT_GE(std::strlen(line), 1U);
  }
}

TEST(HelpTexts, FarewellIsTheDaemonsName) {
  EXPECT_STREQ(kFarewell, "VORN: Bye Bye...");
}

}  // namespace

}  // namespace vorn
