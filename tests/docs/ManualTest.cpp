// The manual pages describe what the code has: nothing is missing, nothing is there that is gone.

#include "checkconf/FindingKinds.h"
#include "tests/docs/Manual.h"
#include "tests/docs/Markdown.h"
#include "tests/support/Pattern.h"
#include "vorn/config/ConfigReader.h"
#include "vorn/config/ConfigTables.h"
#include "vorn/master/CaeCommands.h"
#include "vorn/master/HelpTexts.h"
#include "vorn/master/OutCommandParser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <pugixml.hpp>
#include <set>

namespace vorn {

namespace docs {

namespace {

using NAMES = std::multiset<std::string>;

/// The heads of the items of a section that are set in one of the macros.
NAMES Heads(const std::string& file, const std::string& section, const std::string& macro) {
  NAMES heads;
  for (const MANUAL_ITEM& item : ManualItems(file)) {
    if (item.section == section && item.macro == macro) {
      heads.insert(item.head);
    }
  }
  return heads;
}

// --- the configuration --------------------------------------------------------------------------

TEST(Manual, ListsTheElementsAndAttributesOfTheConfiguration) {
  NAMES known;
  for (const CONFIG_SETTING& setting : ConfigSettings()) {
    known.insert(std::string(setting.element) + " " + setting.attribute);
  }
  for (const INTERFACE_ATTRIBUTE& attribute : InterfaceAttributes()) {
    known.insert(std::string(kInterfacesElement) + " " + attribute.name);
  }
  NAMES listed;
  for (const MANUAL_ITEM& item : ManualItems("vornconf.xml.5")) {
    if (item.section == "ELEMENTS") {
      listed.insert(item.subsection + " " + item.head);
    }
  }
  EXPECT_EQ(listed, known);
}

TEST(Manual, ShowsAnExampleOfTheConfigurationThatIsGood) {
  const std::string page = ManualText("vornconf.xml.5");
  const std::size_t begin = page.find("<?xml");
  const std::size_t end = page.find(".Ed", begin);
  ASSERT_NE(end, std::string::npos);
  pugi::xml_document document;
  ASSERT_TRUE(document.load_string(page.substr(begin, end - begin).c_str()));
  const CONFIG_DESCRIPTOR config = ReadConfigDocument(document);
  EXPECT_EQ(config.errorText, kNoConfigError);
  EXPECT_EQ(config.threadDelayUs, 2525);
  EXPECT_TRUE(config.polling);
  EXPECT_EQ(config.cae.port, 5000);
  EXPECT_EQ(config.mon.inpSeparator, "\r\n");
}

// --- the command line ---------------------------------------------------------------------------

/// "SETSC" as "SETSCpc:x=vv" is listed.
bool IsCommand(const MANUAL_ITEM& item, const CAE_COMMAND& command) {
  const std::string keyword = command.keyword;
  return command.match == CAE_MATCH::kExact ? item.head == keyword : item.head.starts_with(keyword);
}

TEST(Manual, ListsEveryCaeCommandWithItsErrors) {
  std::vector<MANUAL_ITEM> items = ManualItems("vorn-cae.7");
  std::erase_if(items, [](const MANUAL_ITEM& item) { return item.section != "COMMANDS"; });
  EXPECT_EQ(items.size(), CaeCommands().size());
  for (const CAE_COMMAND& command : CaeCommands()) {
    const auto found = std::find_if(items.begin(), items.end(), [&](const MANUAL_ITEM& item) {
      return IsCommand(item, command);
    });
    ASSERT_NE(found, items.end()) << command.keyword;
    const char* const refusal = command.cards == nullptr ? nullptr : command.cards->refusal;
    for (const char* reply : {refusal, command.failure}) {
      if (reply != nullptr) {
        EXPECT_NE(found->body.find(".Dl " + std::string(reply) + "\n"), std::string::npos)
            << command.keyword << ": " << reply;
      }
    }
  }
}

TEST(Manual, WritesTheCaeCommandsAsTheHelpDoes) {
  const NAMES listed = Heads("vorn-cae.7", "COMMANDS", "Ic");
  std::size_t commands = 0;
  for (const char* line : QuickHelp()) {
    static const support::PATTERN kEntry(R"( - (\S+) +\S.*)");
    const std::vector<std::string> match = kEntry.Match(line);
    if (!match.empty()) {
      ++commands;
      EXPECT_TRUE(listed.contains(match[1])) << line;
    }
    if (std::string(line).find("END OF CAE") != std::string::npos) {
      break;
    }
  }
  EXPECT_GT(commands, 20U);
}

TEST(Manual, QuotesEveryReplyOfTheCommandLine) {
  const std::string page = ManualText("vorn-cae.7");
  std::map<std::string, int> found;  // by their beginnings
  for (const std::filesystem::path& source : Sources("vorn")) {
    for (std::string reply : Literals(ReadFile(source))) {
      for (const char* const start : {"CIA: ", "CIE: ", "COE:"}) {
        if (reply.starts_with(start)) {
          ++found[start];
          reply.resize(std::min(reply.find("%s"), reply.size()));  // the page has a name there
          reply.erase(reply.find_last_not_of(' ') + 1);
          EXPECT_NE(page.find(".Dl " + reply), std::string::npos) << reply;
        }
      }
    }
  }
  EXPECT_EQ(found.size(), 3U);
}

// --- the IO commands ----------------------------------------------------------------------------

TEST(Manual, ListsEveryIoCommandOfTheHelp) {
  NAMES forms;
  bool io = false;
  for (const char* line : QuickHelp()) {
    static const support::PATTERN kCommand(R"( - (EXIT) .*)");
    static const support::PATTERN kBlock(R"(- Example: (aAbBdDD))");
    static const support::PATTERN kStream(R"(    - (\S+) +.*)");
    io = io || std::string(line).find("OF IO INTERFACE") != std::string::npos;
    if (!io) {
      continue;
    }
    for (const support::PATTERN* whole : {&kCommand, &kBlock}) {
      if (const auto match = whole->Match(line); !match.empty()) {
        forms.insert(match[1]);
      }
    }
    if (const auto match = kStream.Match(line); !match.empty()) {
      forms.insert("aA" + match[1]);
    }
  }
  EXPECT_EQ(forms.size(), 11U);
  EXPECT_EQ(Heads("vorn-io.7", "COMMANDS", "Ic"), forms);
}

/// What the parser makes of an LCD command: its code on the bus, or -1 when it is refused.
class LCD_CODES {
 public:
  LCD_CODES() {
    m_cards.With(0, [](PERIFCARD& card) { card.typeCode = kAlphanumericLcd; });
  }
  int CodeOf(const std::string& text) {
    m_parser.ParseOutCommand(Convert_String2QList("a0l" + text));
    while (!m_caeOutput.IsEmpty()) {
      m_caeOutput.DeQueue();
    }
    if (m_busQueue.IsEmpty()) {
      return -1;
    }
    const QList body = m_busQueue.DeQueue();
    return static_cast<unsigned char>(body.back());
  }

 private:
  CARD_TABLE m_cards;
  VOQUEUE m_busQueue;
  VOQUEUE m_caeOutput;
  LOGGER m_logger;
  OUT_COMMAND_PARSER m_parser{
      "\n",        "\n",    m_cards, [this](std::size_t, QList body) { m_busQueue.ToQueue(body); },
      m_caeOutput, m_logger};
};

TEST(Manual, ListsEveryLcdCode) {
  std::map<std::string, int> listed;
  for (const MANUAL_ITEM& item : ManualItems("vorn-io.7")) {
    static const support::PATTERN kRow("([A-Z]{2}) Ta ([0-9]+)");
    const std::vector<std::string> match = kRow.Match(item.head);
    if (item.subsection == "Codes on the bus" && !match.empty()) {
      listed[match[1]] = std::stoi(match[2]);
    }
  }
  std::map<std::string, int> known;
  LCD_CODES codes;
  for (char first = 'A'; first <= 'Z'; ++first) {
    for (char second = 'A'; second <= 'Z'; ++second) {
      const std::string text = {first, second};
      const int code = codes.CodeOf(text);
      if (code >= 0) {
        known[text] = code;
      }
    }
  }
  EXPECT_EQ(known.size(), 7U);
  EXPECT_EQ(listed, known);
}

// --- the log ------------------------------------------------------------------------------------

TEST(Manual, SaysOfEveryLogLineWhatToDo) {
  for (const MANUAL_ITEM& item : ManualItems("vorn.8")) {
    if (item.section == "DIAGNOSTICS") {
      EXPECT_NE(item.body.find(".Em What to do :\n"), std::string::npos) << item.head;
    }
  }
}

// --- the checker --------------------------------------------------------------------------------

TEST(Manual, ListsEveryFindingOfTheCheckerWithItsSeverityAndText) {
  std::vector<MANUAL_ITEM> items = ManualItems("vorn-checkconf.1");
  std::erase_if(items, [](const MANUAL_ITEM& item) { return item.section != "DIAGNOSTICS"; });
  ASSERT_EQ(items.size(), checkconf::FindingKinds().size());
  auto item = items.begin();
  for (const checkconf::FINDING_KIND& row : checkconf::FindingKinds()) {
    EXPECT_EQ(item->head, std::string(row.id) + " Pq " + Word(row.severity));
    // One running text, blanks and the capital at its start apart.
    std::string body = item->body;
    std::replace(body.begin(), body.end(), '\n', ' ');
    for (std::string text : {row.text, row.advice}) {
      for (std::size_t at = 0; (at = text.find("{}", at)) != std::string::npos;) {
        text.replace(at, 2, "...");
      }
      EXPECT_NE(body.find(text.substr(1)), std::string::npos) << row.id << ": " << body;
    }
    ++item;
  }
}

}  // namespace

}  // namespace docs

}  // namespace vorn
