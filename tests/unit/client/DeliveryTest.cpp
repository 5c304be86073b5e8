#include "client/Delivery.h"

#include <gtest/gtest.h>

namespace client {
namespace {

REFUSAL Report(const char* line) {
  return {line, false};
}

TEST(Delivery, NumbersTheLinesFromOne) {
  DELIVERY delivery;
  EXPECT_EQ(delivery.LastSent(), 0U);
  EXPECT_EQ(delivery.LastCopied(), 0U);
  EXPECT_EQ(delivery.Sent("a5b1dFB"), 1U);
  EXPECT_EQ(delivery.Sent("a5b1dFF"), 2U);
  EXPECT_EQ(delivery.LastSent(), 2U);
  EXPECT_EQ(delivery.LastCopied(), 0U);
}

TEST(Delivery, ACopyProvesThatTheLineWasTaken) {
  DELIVERY delivery;
  delivery.Sent("a5b1dFB");
  delivery.Sent("a5b1dFF");
  EXPECT_TRUE(delivery.Copied("a5b1dFB"));
  EXPECT_EQ(delivery.LastCopied(), 1U);
  EXPECT_TRUE(delivery.Copied("a5b1dFF"));
  EXPECT_EQ(delivery.LastCopied(), 2U);
}

TEST(Delivery, AnInputLineIsNoCopy) {
  DELIVERY delivery;
  delivery.Sent("a5b1dFB");
  EXPECT_FALSE(delivery.Copied("a3b0d40"));
  EXPECT_FALSE(delivery.Copied("a5b1dFB "));
  EXPECT_FALSE(delivery.Copied("a5b1dfb"));
  EXPECT_FALSE(delivery.Copied(""));
  EXPECT_EQ(delivery.LastCopied(), 0U);
}

TEST(Delivery, ACopyCountsOnce) {
  DELIVERY delivery;
  delivery.Sent("a5b1dFB");
  EXPECT_TRUE(delivery.Copied("a5b1dFB"));
  EXPECT_FALSE(delivery.Copied("a5b1dFB"));
  EXPECT_FALSE(DELIVERY().Copied("a5b1dFB"));
}

TEST(Delivery, TheCopiesOfALineSentTwiceAreTakenInTurn) {
  DELIVERY delivery;
  delivery.Sent("a5b1dFB");
  delivery.Sent("a5b1dFF");
  delivery.Sent("a5b1dFB");
  EXPECT_TRUE(delivery.Copied("a5b1dFB"));
  EXPECT_EQ(delivery.LastCopied(), 1U);
  EXPECT_TRUE(delivery.Copied("a5b1dFB"));
  EXPECT_EQ(delivery.LastCopied(), 3U);
}

TEST(Delivery, PassesLinesByWhoseCopiesWereLeftOut) {
  DELIVERY delivery;
  delivery.Sent("a5b1dF0");
  delivery.Sent("a5b1dF1");
  delivery.Sent("a5b1dF2");
  EXPECT_TRUE(delivery.Copied("a5b1dF1"));
  EXPECT_EQ(delivery.LastCopied(), 2U);
  EXPECT_FALSE(delivery.Copied("a5b1dF0"));
  EXPECT_EQ(delivery.LastCopied(), 2U);
  EXPECT_TRUE(delivery.Copied("a5b1dF2"));
}

TEST(Delivery, AReportNamesItsLineBeforeItsCopyAndAfter) {
  DELIVERY delivery;
  delivery.Sent("a5b1dFB");
  delivery.Sent("aElXX");
  delivery.Sent("hello");
  EXPECT_EQ(delivery.Refused(Report("aElXX")), 2U);
  EXPECT_TRUE(delivery.Copied("hello"));
  EXPECT_EQ(delivery.Refused({"hello", true}), 3U);
}

TEST(Delivery, AReportOfSomebodyElsesLineNamesNone) {
  DELIVERY delivery;
  delivery.Sent("a5b1dFB");
  EXPECT_EQ(delivery.Refused(Report("a5b1dF")), 0U);
  EXPECT_EQ(delivery.Refused(Report("")), 0U);
}

TEST(Delivery, ReportsOfALineSentTwiceNameTheOldestNotYetNamed) {
  DELIVERY delivery;
  delivery.Sent("aElXX");
  delivery.Sent("aElXX");
  EXPECT_EQ(delivery.Refused(Report("aElXX")), 1U);
  EXPECT_EQ(delivery.Refused(Report("aElXX")), 2U);
  EXPECT_EQ(delivery.Refused(Report("aElXX")), 0U);
}

TEST(Delivery, ARefusedLineIsCopiedAllTheSame) {
  DELIVERY delivery;
  delivery.Sent("aElXX");
  EXPECT_EQ(delivery.Refused(Report("aElXX")), 1U);
  EXPECT_TRUE(delivery.Copied("aElXX"));
}

TEST(Delivery, ForgetsLines) {
  DELIVERY delivery;
  delivery.Sent("aElXX");
  delivery.Sent("aElXX");
  delivery.Sent("a5b1dFB");
  delivery.Forget(2);
  EXPECT_EQ(delivery.Refused(Report("aElXX")), 2U);
  EXPECT_TRUE(delivery.Copied("aElXX"));
  EXPECT_EQ(delivery.LastCopied(), 2U);
  delivery.Forget(99);
  EXPECT_FALSE(delivery.Copied("a5b1dFB"));
  EXPECT_EQ(delivery.LastCopied(), 2U);
  EXPECT_EQ(delivery.Sent("a5b1dFF"), 4U);
}

}  // namespace
}  // namespace client
