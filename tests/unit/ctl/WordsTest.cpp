#include "vornctl/ExitStatus.h"
#include "vornctl/Words.h"

#include <gtest/gtest.h>

namespace ctl {
namespace {

using WORD_LIST = std::vector<std::string>;

TEST(SplitWords, SeparatesAtBlanks) {
  EXPECT_EQ(SplitWords("  set 5.10=on\t 0.4=50% "), WORD_LIST({"set", "5.10=on", "0.4=50%"}));
  EXPECT_EQ(SplitWords(""), WORD_LIST());
  EXPECT_EQ(SplitWords(" \t\r"), WORD_LIST());
}

TEST(SplitWords, TakesWhatIsQuotedAsItIs) {
  EXPECT_EQ(SplitWords(R"(lcd E "Tail of  the cat")"), WORD_LIST({"lcd", "E", "Tail of  the cat"}));
  EXPECT_EQ(SplitWords(R"(lcd E 'a "b" \')"), WORD_LIST({"lcd", "E", R"(a "b" \)"}));
  EXPECT_EQ(SplitWords(R"(x"y z"w)"), WORD_LIST({"xy zw"}));
  EXPECT_EQ(SplitWords(R"("" '')"), WORD_LIST({"", ""}));
}

TEST(SplitWords, TakesWhatStandsBehindABackslashAsItIs) {
  EXPECT_EQ(SplitWords(R"(a\ b \" \# \\)"), WORD_LIST({"a b", "\"", "#", "\\"}));
  EXPECT_EQ(SplitWords(R"("\"")"), WORD_LIST({"\""}));
  EXPECT_EQ(SplitWords("a\\"), WORD_LIST({"a\\"}));
}

TEST(SplitWords, EndsAtACommentOnlyWhereAWordBegins) {
  EXPECT_EQ(SplitWords("stop # the motors"), WORD_LIST({"stop"}));
  EXPECT_EQ(SplitWords("# all of it"), WORD_LIST());
  EXPECT_EQ(SplitWords("lcd E no#comment '# text'"),
            WORD_LIST({"lcd", "E", "no#comment", "# text"}));
}

TEST(SplitWords, RefusesAQuoteThatIsNotClosed) {
  for (const char* line : {"lcd E \"text", "lcd E 'text", "a\"b\\\""}) {
    EXPECT_THROW(SplitWords(line), FAILURE) << line;
  }
}

}  // namespace
}  // namespace ctl
