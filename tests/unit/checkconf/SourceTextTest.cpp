#include "checkconf/Quoting.h"
#include "checkconf/SourceText.h"

#include <gtest/gtest.h>

namespace vorn {

namespace {

using checkconf::POSITION;
using checkconf::SOURCE_TEXT;

std::string At(const SOURCE_TEXT& source, std::size_t offset) {
  const POSITION position = source.At(offset);
  return std::to_string(position.line) + ":" + std::to_string(position.column);
}

TEST(SourceText, CountsLinesAndColumnsFromOne) {
  const SOURCE_TEXT source("ab\ncd\n");
  EXPECT_EQ(At(source, 0), "1:1");
  EXPECT_EQ(At(source, 1), "1:2");
  EXPECT_EQ(At(source, 3), "2:1");
  EXPECT_EQ(At(source, 6), "3:1");
}

TEST(SourceText, CountsCharactersRatherThanBytes) {
  EXPECT_EQ(At(SOURCE_TEXT("\xC3\xA4\xE2\x82\xACx"), 5), "1:3");
}

TEST(SourceText, DoesNotCountAByteOrderMark) {
  const SOURCE_TEXT source("\xEF\xBB\xBF<a>\n<b>");
  EXPECT_EQ(At(source, 0), "1:1");
  EXPECT_EQ(At(source, 3), "1:1");
  EXPECT_EQ(At(source, 8), "2:2");
}

TEST(SourceText, TakesAnOffsetBehindTheEndForTheEnd) {
  EXPECT_EQ(At(SOURCE_TEXT("ab"), 99), "1:3");
  EXPECT_EQ(At(SOURCE_TEXT(""), 99), "1:1");
}

TEST(SourceText, GivesNoPositionOnceTheyAreForgotten) {
  SOURCE_TEXT source("ab");
  source.ForgetPositions();
  EXPECT_EQ(At(source, 1), "0:0");
}

TEST(SourceText, FindsTheAttributesOfAStartTag) {
  const SOURCE_TEXT source("<e a='>' \n b = \"'/\"\tc=''/> d='x'");
  EXPECT_EQ(source.AttributeOffsets(1), (std::vector<std::size_t>{3, 11, 20}));
  EXPECT_EQ(SOURCE_TEXT("<e>").AttributeOffsets(1), std::vector<std::size_t>());
}

TEST(SourceText, StopsAtTheEndOfATornTag) {
  for (const char* torn : {"<e", "<e ", "<e a", "<e a=", "<e a='", "<e a='x"}) {
    EXPECT_LE(SOURCE_TEXT(torn).AttributeOffsets(1).size(), 1U) << torn;
  }
}

TEST(Quoting, LetsNoControlCharacterThrough) {
  EXPECT_EQ(checkconf::Quoted("a\x1B[31m\r\n\x7F\xC2\x9B"), "\"a\\x1B[31m\\r\\n\\x7F\\xC2\\x9B\"");
  EXPECT_EQ(checkconf::Shown("\xC2\xB5s \xE2\x82\xAC"), "\xC2\xB5s \xE2\x82\xAC");
}

TEST(Quoting, CutsALongTextBetweenCharacters) {
  EXPECT_EQ(checkconf::Shown(std::string(60, 'x')), std::string(60, 'x'));
  EXPECT_EQ(checkconf::Shown(std::string(61, 'x')), std::string(60, 'x') + "...");
  EXPECT_EQ(checkconf::Shown(std::string(59, 'x') + "\xC3\xA4"), std::string(59, 'x') + "...");
}

}  // namespace

}  // namespace vorn
