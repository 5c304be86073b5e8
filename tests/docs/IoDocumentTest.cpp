// docs/io.md: its forms are those that are taken, its examples true.

#include "tests/docs/Markdown.h"
#include "tests/support/unit/Bytes.h"
#include "tests/support/unit/ExampleRack.h"
#include "vorn/base/Logger.h"
#include "vorn/master/OutCommandParser.h"

#include <gtest/gtest.h>

#include <array>
#include <set>

namespace vorn {

namespace docs {
namespace {

const char* const kIoDocument = "docs/io.md";

/// A parser on the examples' rack.
class IoExamples : public testing::Test {
 protected:
  IoExamples() { unit::Identify(m_cards); }

  /// The request that a command puts on the bus; empty when there is none.
  std::string RequestOf(const std::string& command) {
    m_parser.ParseOutCommand(Convert_String2QList(command + "\r\n"));
    m_refused = !m_cae.IsEmpty();
    while (!m_cae.IsEmpty()) {
      m_cae.DeQueue();
    }
    std::string request;
    for (VOQUEUE& queue : m_bus) {
      while (!queue.IsEmpty()) {
        request += unit::ToHex(queue.DeQueue());
      }
    }
    return request;
  }

  CARD_TABLE m_cards;
  std::array<VOQUEUE, bus::kAddresses> m_bus;
  VOQUEUE m_cae;
  LOGGER m_logger;
  OUT_COMMAND_PARSER m_parser{
      "\r\n",  "\r\n",
      m_cards, [this](std::size_t address, QList body) { m_bus.at(address).ToQueue(body); },
      m_cae,   m_logger};
  bool m_refused = false;  // the last command
};

std::set<std::string> DocumentedForms() {
  std::set<std::string> forms;
  for (const ROW& row : Tables(Section(ReadFile(kIoDocument), "## IO: commands to cards"))) {
    for (const std::string& span : CodeSpans(row.at(0))) {
      forms.insert(span);
    }
  }
  return forms;
}

TEST_F(IoExamples, PutTheRequestsOnTheBusAsWritten) {
  const std::vector<ROW> rows = Tables(Section(ReadFile(kIoDocument), "## Examples"));
  ASSERT_FALSE(rows.empty());
  for (const ROW& row : rows) {
    const std::string line = CodeSpans(row.at(0)).at(0);
    const std::string request = RequestOf(line);
    if (request.empty()) {
      EXPECT_EQ(row.at(1),
                m_refused ? "nothing: refused" : "nothing: a digital input takes no blocks")
          << line;
    } else {
      EXPECT_EQ(row.at(1), "`" + request + "`") << line;
    }
  }
}

TEST_F(IoExamples, NameEveryLcdControlThatIsTaken) {
  std::set<std::string> taken;
  for (char first = 'A'; first <= 'Z'; ++first) {
    for (char second = 'A'; second <= 'Z'; ++second) {
      const std::string control = {first, second};
      if (!RequestOf("aEl" + control).empty()) {
        taken.insert("aAl" + control);
      }
    }
  }
  std::set<std::string> documented;
  for (const std::string& form : DocumentedForms()) {
    if (form.size() == 5 && form.compare(0, 3, "aAl") == 0) {
      documented.insert(form);
    }
  }
  EXPECT_FALSE(taken.empty());
  EXPECT_EQ(documented, taken);
}

TEST_F(IoExamples, NameEveryFormThatIsTaken) {
  // The character that tells the form stands at position 2; each is tried with what follows it in
  // any form, at every card.
  const std::set<std::string> rests = {"0d00", "CL", "HS00", "PAp0000tx"};
  std::set<char> taken;
  for (int form = 1; form < 256; ++form) {
    for (const std::string& rest : rests) {
      for (const char* const address : {"0", "1", "3", "5", "8", "9", "E", "F"}) {
        const std::string command = std::string("a") + address + static_cast<char>(form) + rest;
        if (!RequestOf(command).empty()) {
          taken.insert(static_cast<char>(form));
        }
      }
    }
  }
  std::set<char> documented;
  for (const std::string& form : DocumentedForms()) {
    if (form.compare(0, 2, "aA") == 0) {
      documented.insert(form.at(2));
    }
  }
  EXPECT_EQ(documented, taken);
}

}  // namespace
}  // namespace docs

}  // namespace vorn
