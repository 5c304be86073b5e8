#include "client/LineSplitter.h"

#include <gtest/gtest.h>

namespace client {
namespace {

using TEXTS = std::vector<std::string>;

TEXTS TextsOf(const std::vector<LINE_SPLITTER::LINE>& lines) {
  TEXTS texts;
  for (const LINE_SPLITTER::LINE& line : lines) {
    texts.push_back(line.isCut ? line.text + " (cut)" : line.text);
  }
  return texts;
}

/// The lines of a stream, in one piece and byte by byte: both must be the same.
TEXTS Split(const std::vector<std::string>& separators, const std::string& stream) {
  LINE_SPLITTER whole(separators);
  const TEXTS texts = TextsOf(whole.Feed(stream));
  LINE_SPLITTER pieces(separators);
  TEXTS single;
  for (const char byte : stream) {
    for (std::string& text : TextsOf(pieces.Feed(std::string(1, byte)))) {
      single.push_back(std::move(text));
    }
  }
  EXPECT_EQ(single, texts) << stream;
  return texts;
}

TEST(LineSplitter, CutsMessagesThatEndWithASeparatorAndACarriageReturn) {
  EXPECT_EQ(Split({"\r\n"}, "CIA: Card is REBOOTED\r\n\rRBT:0x5:OK\r\n\r>\r\n\r"),
            TEXTS({"CIA: Card is REBOOTED", "RBT:0x5:OK", ">"}));
}

TEST(LineSplitter, CutsAMessageOfSeveralLines) {
  EXPECT_EQ(Split({"\r\n"}, "CIE: UNKNOWN COMMAND \r\n>\r\n\r"),
            TEXTS({"CIE: UNKNOWN COMMAND ", ">"}));
}

TEST(LineSplitter, KeepsALineUntilItsEndHasCome) {
  LINE_SPLITTER splitter({"\r\n"});
  EXPECT_EQ(TextsOf(splitter.Feed("a3b0")), TEXTS());
  EXPECT_EQ(TextsOf(splitter.Feed("d40\r")), TEXTS());
  EXPECT_EQ(TextsOf(splitter.Feed("\n\ra3")), TEXTS({"a3b0d40"}));
  EXPECT_EQ(TextsOf(splitter.Feed("b1d00\r\n\r")), TEXTS({"a3b1d00"}));
}

TEST(LineSplitter, TakesWhatOnlyBeginsLikeASeparatorForText) {
  EXPECT_EQ(Split({"\r\n"}, "a\rb\nc\r\n"), TEXTS({"a\rb\nc"}));
  EXPECT_EQ(Split({"<br>"}, "a<b<br<br>b<<br>"), TEXTS({"a<b<br", "b<"}));
}

TEST(LineSplitter, TakesAnySeparator) {
  EXPECT_EQ(Split({";"}, "one;\rtwo;\r;\r"), TEXTS({"one", "two"}));
  EXPECT_EQ(Split({"\n"}, "one\n\rtwo\n\r"), TEXTS({"one", "two"}));
  EXPECT_EQ(Split({"\r"}, "one\r\rtwo\r\r"), TEXTS({"one", "two"}));
}

TEST(LineSplitter, EndsALineAtALineFeedWhereThereIsNoSeparator) {
  EXPECT_EQ(Split({}, "one\r\n\rtwo\n"), TEXTS({"one", "two"}));
  EXPECT_EQ(Split({""}, "one\r\n\rtwo\n"), TEXTS({"one", "two"}));
}

TEST(LineSplitter, LeavesEmptyLinesOutAndKeepsBlankOnes) {
  EXPECT_EQ(Split({"\r\n"}, "\r\n\r\r\n\r \r\n\rone \r\n\r\n\n"), TEXTS({" ", "one "}));
}

TEST(LineSplitter, EndsALineAtTheFirstOfSeveralSeparators) {
  EXPECT_EQ(Split({";", "\r\n"}, "a5b1dFB;a3b0d40\r\n\ra3b0d00;"),
            TEXTS({"a5b1dFB", "a3b0d40", "a3b0d00"}));
}

TEST(LineSplitter, TakesTheLongerOfTwoSeparatorsAtOnePlace) {
  for (const std::vector<std::string>& separators :
       {std::vector<std::string>{"|", "|end"}, std::vector<std::string>{"|end", "|"}}) {
    EXPECT_EQ(Split(separators, "one|endtwo|enthree|end|four|"),
              TEXTS({"one", "two", "enthree", "four"}));
  }
}

TEST(LineSplitter, GivesALineAtOnceThoughItsSeparatorMayGrow) {
  LINE_SPLITTER splitter({"|", "|end"});
  EXPECT_EQ(TextsOf(splitter.Feed("one|")), TEXTS({"one"}));
  EXPECT_EQ(TextsOf(splitter.Feed("en")), TEXTS());
  EXPECT_EQ(TextsOf(splitter.Feed("dtwo|")), TEXTS({"two"}));
  EXPECT_EQ(TextsOf(splitter.Feed("en")), TEXTS());
  EXPECT_EQ(TextsOf(splitter.Feed("x|")), TEXTS({"enx"}));
}

TEST(LineSplitter, ThrowsTheRestOfALongLineAway) {
  const std::string longest(LINE_SPLITTER::kLongestLine, 'x');
  EXPECT_EQ(Split({"\r\n"}, longest + "\r\n\r" + longest + "y\r\n\rnext\r\n\r"),
            TEXTS({longest, longest + " (cut)", "next"}));
}

TEST(LineSplitter, DoesNotCountTheCarriageReturnsAtALinesEnds) {
  const std::string longest(LINE_SPLITTER::kLongestLine, 'x');
  const std::string returns(LINE_SPLITTER::kLongestLine, '\r');
  EXPECT_EQ(Split({";"}, returns + longest + returns + ";"), TEXTS({longest}));
}

TEST(LineSplitter, TakesAnyByte) {
  std::string all;
  for (int code = 0; code < 256; ++code) {
    all += code == '\r' || code == '\n' ? ' ' : static_cast<char>(code);
  }
  EXPECT_EQ(Split({"\r\n"}, all + "\r\n\r"), TEXTS({all}));
}

TEST(LineSplitter, ForgetsWhatHasComeOfALine) {
  LINE_SPLITTER splitter({"\r\n"});
  splitter.Feed("half a li");
  splitter.Clear();
  EXPECT_EQ(TextsOf(splitter.Feed("one\r\n\r")), TEXTS({"one"}));
  splitter.Feed("another\r");
  splitter.Clear();
  EXPECT_EQ(TextsOf(splitter.Feed("\ntwo\r\n")), TEXTS({"two"}));
  splitter.Feed(std::string(2 * LINE_SPLITTER::kLongestLine, 'x'));
  splitter.Clear();
  EXPECT_EQ(TextsOf(splitter.Feed("three\r\n")), TEXTS({"three"}));
}

TEST(LineSplitter, ForgetsASeparatorThatMightHaveGrown) {
  LINE_SPLITTER splitter({"|", "|end"});
  splitter.Feed("one|");
  splitter.Clear();
  EXPECT_EQ(TextsOf(splitter.Feed("endtwo|")), TEXTS({"endtwo"}));
}

}  // namespace
}  // namespace client
