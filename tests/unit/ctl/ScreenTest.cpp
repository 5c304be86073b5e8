#include "tests/support/Screen.h"

#include <gtest/gtest.h>

namespace {

using support::SCREEN;
using LINES = std::vector<std::string>;

TEST(Screen, GoesOnInTheNextRowWhenTheRowIsFull) {
  SCREEN screen(4, 3);
  screen.Write("abcd");
  EXPECT_EQ(screen.CursorRow(), 0U);
  screen.Write("e\r\nf");
  EXPECT_EQ(screen.Rows(), (LINES{"abcd", "e", "f"}));
}

TEST(Screen, MovesErasesInsertsAndDeletes) {
  SCREEN screen(10, 5);
  screen.Write("abc\r\ndefg\033[2D\033[K\033[Aw\rX\033[@\033[CZ");
  EXPECT_EQ(screen.Rows(), (LINES{"X Zw", "de"}));
  screen.Write("\033[2G\033[P\033[4hY\033[4l");
  EXPECT_EQ(screen.Rows(), (LINES{"XYZw", "de"}));
  screen.Write("\r\033[J");
  EXPECT_EQ(screen.Rows(), LINES{});
  EXPECT_EQ(screen.Unknown(), "");
}

TEST(Screen, ShowsAWideSignInTwoColumns) {
  SCREEN screen(5, 3);
  screen.Write("\u00E9\u65E5\u65E5x");
  EXPECT_EQ(screen.Rows(), (LINES{"\u00E9\u65E5\u65E5", "x"}));
}

TEST(Screen, KeepsWhatScrollsOut) {
  SCREEN screen(5, 2);
  screen.Write("1\r\n2\r\n3\033[A\033[A\033[A\rx");
  EXPECT_EQ(screen.Rows(), (LINES{"1", "x", "3"}));
}

TEST(Screen, SaysWhatItDoesNotKnow) {
  SCREEN screen(5, 2);
  screen.Write("\033[3q\177\001");
  EXPECT_EQ(screen.Unknown(), "sequence [3q; control 1; ");
}

}  // namespace
