#include "vorn/master/TextParts.h"

#include <gtest/gtest.h>

#include <string>

namespace vorn {

namespace {

TEST(PartOf, GivesAtMostTheLength) {
  EXPECT_EQ(PartOf("abcdef", 1, 2), "bc");
  EXPECT_EQ(PartOf("abcdef", 5, 2), "f");
  EXPECT_EQ(PartOf("abcdef", 2, std::string::npos), "cdef");
}

TEST(PartOf, OutsideTheTextIsEmpty) {
  EXPECT_EQ(PartOf("abc", 3, 1), "");
  EXPECT_EQ(PartOf("abc", 4, 1), "");
  EXPECT_EQ(PartOf("abc", std::string::npos, 1), "");
  EXPECT_EQ(PartOf("", 0, 1), "");
}

TEST(CharacterAt, OutsideTheTextIsAZeroByte) {
  EXPECT_EQ(CharacterAt("ab", 1), 'b');
  EXPECT_EQ(CharacterAt("ab", 2), '\0');
  EXPECT_EQ(CharacterAt("ab", 1000), '\0');
  EXPECT_EQ(CharacterAt("", 0), '\0');
}

TEST(FormatText, FormatsAndCutsAtItsLimit) {
  EXPECT_EQ(FormatText("RBT:0x%X:OK", 15U), "RBT:0xF:OK");
  EXPECT_EQ(FormatText("%s", std::string(300, 'x').c_str()), std::string(255, 'x'));
}

}  // namespace

}  // namespace vorn
