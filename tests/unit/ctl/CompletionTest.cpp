#include "vornctl/Completion.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace ctl {
namespace {

using client::CARD_KIND;
using WORD_LIST = std::vector<std::string>;

const COMPLETION_FACTS kFacts = {{{0, CARD_KIND::kServo},
                                  {3, CARD_KIND::kDigitalInput},
                                  {5, CARD_KIND::kDigitalOutput},
                                  {8, CARD_KIND::kKeys},
                                  {0xE, CARD_KIND::kLcd},
                                  {0xF, CARD_KIND::kAnalogue}},
                                 {"door", "lamp"}};

WORD_LIST Words(const std::string& before) {
  return Complete(before, kFacts);
}

bool Has(const WORD_LIST& words, const std::string& word) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

TEST(Completion, OfTheFirstWordAreTheCommands) {
  EXPECT_EQ(Words("ver"), WORD_LIST({"version"}));
  EXPECT_TRUE(Has(Words(""), "set"));
  EXPECT_TRUE(Has(Words(""), "sleep"));
  EXPECT_FALSE(Has(Words(""), "batch"));  // not at the prompt
  EXPECT_EQ(Words("nonsense "), WORD_LIST());
}

TEST(Completion, OfAnOutputIsFirstItsCardThenItsChannelThenItsValue) {
  EXPECT_EQ(Words("set 5"), WORD_LIST({"5."}));
  EXPECT_EQ(Words("set 5.15"), WORD_LIST({"5.15="}));
  EXPECT_EQ(Words("set 5.15=o"), WORD_LIST({"5.15=on", "5.15=off"}));
  EXPECT_EQ(Words("set 5.b1="), WORD_LIST());
  EXPECT_EQ(Words("set 0.1="), WORD_LIST());
  EXPECT_EQ(Words("set la"), WORD_LIST({"lamp="}));
  EXPECT_EQ(Words("set 3"), WORD_LIST());  // an input
}

TEST(Completion, OfInputsAreInputs) {
  EXPECT_EQ(Words("get 8."), WORD_LIST({"8.key", "8.encoder"}));
  EXPECT_EQ(Words("watch do"), WORD_LIST({"door"}));
  EXPECT_EQ(Words("wait 3.7"), WORD_LIST({"3.7="}));
  EXPECT_EQ(Words("get 5"), WORD_LIST());
}

TEST(Completion, OfACardIsOneOfItsKind) {
  EXPECT_TRUE(Has(Words("lcd "), "E"));
  EXPECT_FALSE(Has(Words("lcd "), "5"));
  EXPECT_EQ(Words("reboot 5"), WORD_LIST({"5"}));
}

TEST(Completion, OfAParameterIsOneOfItsCard) {
  EXPECT_EQ(Words("param F "), WORD_LIST({"mask"}));
  EXPECT_EQ(Words("param 0 endB5"), WORD_LIST({"endB5"}));
  EXPECT_FALSE(Has(Words("param "), "3"));  // has none
}

TEST(Completion, KnowsTheOptions) {
  EXPECT_EQ(Words("cards --r"), WORD_LIST({"--rescan"}));
  EXPECT_EQ(Words("watch --mon"), WORD_LIST({"--monitor"}));
}

}  // namespace
}  // namespace ctl
