// The operator's command line: the table of its commands.

#include "tests/support/CaeVectors.h"
#include "vorn/master/CaeCommands.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

namespace vorn {

namespace unit {
namespace {

using namespace support::cae;  // NOLINT(google-build-using-namespace): the vectors' words
using LINES = std::vector<std::string>;

TEST(CaeCommands, HaveEachAVectorInTheManualsOrder) {
  LINES manual;
  for (const VECTOR& vector : kVectors) {
    if (IsFirst(vector)) {
      manual.emplace_back(vector.keyword);
    }
  }
  LINES keywords;
  for (const CAE_COMMAND& command : CaeCommands()) {
    keywords.emplace_back(command.keyword);
  }
  EXPECT_EQ(keywords, manual);
}

TEST(CaeCommands, AskForTheWholeLineOrForTheSeparatorOrForNeither) {
  for (const CAE_COMMAND& command : CaeCommands()) {
    const std::string keyword = command.keyword;
    SCOPED_TRACE(keyword);
    const MATCH match =
        std::find_if(std::begin(kVectors), std::end(kVectors), [&](const VECTOR& it) {
          return it.keyword == keyword;
        })->match;
    const bool anywhere = match == MATCH::kContains || match == MATCH::kAlone;
    const auto matches = [&](const std::string& text) { return command.Matches({text, "\r\n"}); };
    EXPECT_EQ(matches(keyword + "\r\n"), match != MATCH::kNever);
    EXPECT_EQ(matches(keyword), match == MATCH::kAlone);
    EXPECT_EQ(matches("x" + keyword + "x\r\n"), anywhere);
    EXPECT_EQ(matches("\r\n" + keyword), anywhere);
    EXPECT_FALSE(matches(keyword.substr(1) + "\r\n"));
  }
}

TEST(CaeCommands, NameAFieldForEachConversionOfTheirReplies) {
  for (const CAE_COMMAND& command : CaeCommands()) {
    for (const CAE_REPLY& reply : {command.reply, command.result}) {
      const std::string format = reply.format == nullptr ? "" : reply.format;
      std::string kinds;  // of the fields: text or number
      for (std::size_t at = 0; (at = format.find('%', at)) != std::string::npos;) {
        at = format.find_first_of("sXd%", at + 1);
        kinds += format.at(at++);
      }
      std::erase(kinds, '%');
      ASSERT_EQ(std::string(reply.fields).size(), kinds.size()) << format;
      for (std::size_t i = 0; i < kinds.size(); ++i) {
        EXPECT_NE(std::string(kinds[i] == 's' ? "xpcsn" : "xcvr").find(reply.fields[i]),
                  std::string::npos)
            << format;
      }
    }
  }
}

}  // namespace
}  // namespace unit

}  // namespace vorn
