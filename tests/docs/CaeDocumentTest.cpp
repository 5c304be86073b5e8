// docs/cae.md: its commands are those of the table, its texts those that are sent, its examples
// true.

#include "tests/docs/Markdown.h"
#include "tests/support/unit/Bytes.h"
#include "tests/support/unit/ExampleRack.h"
#include "tests/unit/master/DaemonDouble.h"
#include "vorn/master/CaeInterpreter.h"
#include "vorn/master/HelpTexts.h"

#include <gtest/gtest.h>

#include <set>

namespace vorn {

namespace docs {
namespace {

const char* const kCaeDocument = "docs/cae.md";

/// "SETSC" of "SETSCpc:x=vv", "SPEED=" of "SPEED=ppp": the command without its parameters.
std::string KeywordOf(const std::string& form) {
  const std::size_t end = form.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ");
  const std::string keyword = form.substr(0, end);
  return keyword + (end != std::string::npos && form[end] == '=' ? "=" : "");
}

/// The same of a keyword in the code's table, which may end with a colon.
std::string WithoutColon(std::string keyword) {
  if (keyword.back() == ':') {
    keyword.pop_back();
  }
  return keyword;
}

LINES KeywordsOf(const char* heading) {
  LINES keywords;
  for (const ROW& row : Tables(Section(ReadFile(kCaeDocument), heading))) {
    const LINES spans = CodeSpans(row.at(0));
    EXPECT_EQ(spans.size(), 1U) << row.at(0);
    keywords.push_back(KeywordOf(spans.at(0)));
  }
  return keywords;
}

LINES KeywordsOfTheCode() {
  LINES keywords;
  for (const CAE_COMMAND& command : CaeCommands()) {
    if (command.match != CAE_MATCH::kNever) {
      keywords.push_back(WithoutColon(command.keyword));
    }
  }
  return keywords;
}

TEST(CaeDocument, ListsTheCommandsOfTheTableInTheirOrder) {
  EXPECT_EQ(KeywordsOf("## Commands"), KeywordsOfTheCode());
}

/// The words of the document for the fields of a reply.
std::string NameOf(char field) {
  return field == 's' ? "ss" : field == 'n' ? "ppp" : std::string(1, field);
}

/// A reply as the document shows it: its texts with the parameters' names in them, what has numbers
/// in it as it is.
std::string Shown(const CAE_REPLY& reply) {
  std::string text = reply.format;
  if (text.find('X') != std::string::npos && text.find("0x%") != std::string::npos) {
    return "`" + text + "`";
  }
  for (const char* field = reply.fields; *field != '\0'; ++field) {
    text.replace(text.find("%s"), 2, NameOf(*field));
  }
  const std::size_t percent = text.find("%%");
  return "`" + (percent == std::string::npos ? text : text.erase(percent, 1)) + "`";
}

/// The row of a command in the table of answers, without what the fields of its numbers are.
ROW AnswersOf(const CAE_COMMAND& command) {
  std::string replies;
  for (const CAE_REPLY& reply : {command.reply, command.result}) {
    if (reply.format != nullptr) {
      replies += (replies.empty() ? "" : ", ") + Shown(reply);
    }
  }
  const auto quoted = [](const char* text) {
    return text == nullptr ? std::string() : "`" + std::string(text) + "`";
  };
  return {replies, quoted(command.failure),
          quoted(command.cards == nullptr ? nullptr : command.cards->refusal)};
}

TEST(CaeDocument, TellsTheAnswersOfEveryCommand) {
  std::vector<ROW> rows = Tables(Section(ReadFile(kCaeDocument), "## Answers"));
  std::string lastRefusal;
  auto row = rows.begin();
  for (const CAE_COMMAND& command : CaeCommands()) {
    if (command.match == CAE_MATCH::kNever) {
      continue;
    }
    SCOPED_TRACE(command.keyword);
    ASSERT_NE(row, rows.end());
    ASSERT_EQ(row->size(), 4U);
    EXPECT_EQ(WithoutColon(CodeSpans(row->at(0)).at(0)), WithoutColon(command.keyword));
    lastRefusal = row->at(3) == "the same" ? lastRefusal : row->at(3);
    const ROW answers = AnswersOf(command);
    if (!answers[0].empty()) {  // a function's own answers are in the examples, or in the text
      EXPECT_EQ(CodeSpans(row->at(1)), CodeSpans(answers[0]));
    }
    EXPECT_EQ(row->at(2), answers[1]);
    EXPECT_EQ(lastRefusal, answers[2]);
    ++row;
  }
  EXPECT_EQ(row, rows.end());
}

TEST(CaeDocument, TellsHowEachCommandIsMatched) {
  const std::vector<ROW> rows = Tables(Section(ReadFile(kCaeDocument), "## Commands"));
  std::size_t at = 0;
  for (const CAE_COMMAND& command : CaeCommands()) {
    if (command.match != CAE_MATCH::kNever) {
      EXPECT_EQ(rows.at(at++).at(1), command.match == CAE_MATCH::kExact ? "exact" : "contains")
          << command.keyword;
    }
  }
}

TEST(CaeDocument, NamesEveryKeywordAsItIsMatched) {
  const std::string document = ReadFile(kCaeDocument);
  const LINES spans = CodeSpans(document);
  const std::set<std::string> named(spans.begin(), spans.end());
  for (const CAE_COMMAND& command : CaeCommands()) {
    EXPECT_EQ(named.count(command.keyword), 1U) << command.keyword;
  }
}

TEST(CaeDocument, ShowsTheHelpWhole) {
  const std::vector<LINES> blocks = Blocks(Section(ReadFile(kCaeDocument), "## HELP"), "text");
  ASSERT_EQ(blocks.size(), 1U);
  EXPECT_EQ(blocks[0], LINES(QuickHelp().begin(), QuickHelp().end()));
}

TEST(CaeDocument, ShowsTheIoExamplesWhole) {
  const std::vector<LINES> blocks =
      Blocks(Section(ReadFile(kCaeDocument), "## IOEXAMPLES"), "text");
  ASSERT_EQ(blocks.size(), 1U);
  EXPECT_EQ(blocks[0], LINES(IoExamples().begin(), IoExamples().end()));
}

/// An interpreter on the examples' rack, whose cards acknowledge whatever they are asked, and have
/// 2A where something is read.
class CaeExamples : public testing::Test {
 protected:
  CaeExamples() {
    unit::Identify(m_cards);
    m_daemon.duringPause = [this](std::size_t) {
      if (m_bus.IsEmpty()) {
        return;
      }
      m_request = unit::ToHex(m_bus.DeQueue());
      const std::size_t address = unit::Hex(m_request).at(1);
      m_cards.With(address, [](PERIFCARD& card) {
        card.queryBytes[0] = 'Q';
        card.queryBytes[3] = 0x2A;
      });
    };
  }

  /// What comes back for a line, without separators and prompt.
  LINES Answer(const std::string& line) {
    m_request.clear();
    m_interpreter.InterpretCaeCommand(line + "\r\n");
    LINES answer;
    while (!m_output.IsEmpty()) {
      answer.push_back(Convert_QList2String(m_output.DeQueue()));
      EXPECT_EQ(answer.back().substr(answer.back().size() - 2), "\r\n");
      answer.back().resize(answer.back().size() - 2);
    }
    EXPECT_EQ(answer.back(), ">") << line;
    answer.pop_back();
    return answer;
  }

  INTERFACE_DESCRIPTOR m_descriptor;
  VOQUEUE m_output;
  VOQUEUE m_bus;
  VOQUEUE m_inputLines;
  CARD_TABLE m_cards;
  unit::DAEMON_DOUBLE m_daemon;
  CAE_INTERPRETER m_interpreter{
      m_descriptor, m_output, [this](QList body) { m_bus.ToQueue(std::move(body)); },
      m_inputLines, m_cards,  m_daemon};
  std::string m_request;  // of the last line
};

TEST_F(CaeExamples, HaveTheRequestsAndAnswersAsWritten) {
  const std::vector<ROW> rows = Tables(Section(ReadFile(kCaeDocument), "## Examples"));
  ASSERT_FALSE(rows.empty());
  for (const ROW& row : rows) {
    const std::string line = CodeSpans(row.at(0)).at(0);
    EXPECT_EQ(Answer(line), CodeSpans(row.at(2))) << line;
    EXPECT_EQ(m_request.empty() ? "" : "`" + m_request + "`", row.at(1)) << line;
  }
}

TEST_F(CaeExamples, ShowEveryCommandThatACardAcknowledges) {
  std::set<std::string> shown;
  for (const ROW& row : Tables(Section(ReadFile(kCaeDocument), "## Examples"))) {
    const std::string line = CodeSpans(row.at(0)).at(0);
    for (const CAE_COMMAND& command : CaeCommands()) {
      if (line.rfind(command.keyword, 0) == 0 && !row.at(1).empty()) {
        shown.insert(command.keyword);
      }
    }
  }
  for (const CAE_COMMAND& command : CaeCommands()) {
    if (command.step.kind > CAE_STEP::kRun) {
      EXPECT_EQ(shown.count(command.keyword), 1U) << command.keyword;
    }
  }
}

}  // namespace
}  // namespace docs

}  // namespace vorn
