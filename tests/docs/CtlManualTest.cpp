// vornctl(1), its schema, completion and example settings: they have all that the program has.

#include "client/Cards.h"
#include "tests/docs/Manual.h"
#include "tests/docs/Markdown.h"
#include "tests/support/Pattern.h"
#include "vornctl/Completion.h"
#include "vornctl/ExitStatus.h"
#include "vornctl/Program.h"
#include "vornctl/Settings.h"
#include "vornctl/commands/Commands.h"

#include <gtest/gtest.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>

namespace vorn {

namespace docs {

namespace {

const char* const kCtlPage = "vornctl.1";

std::vector<MANUAL_ITEM> CtlItems(const std::string& section, const std::string& subsection = {}) {
  std::vector<MANUAL_ITEM> items = ManualItems(kCtlPage);
  std::erase_if(items, [&](const MANUAL_ITEM& item) {
    return item.section != section || item.subsection != subsection;
  });
  return items;
}

/// The heads under which a command's options are to stand: "-only Ar NAME,...".
LINES OptionHeads(const CLI::App& app) {
  LINES heads;
  for (const CLI::Option* option : app.get_options()) {
    if (option->get_lnames().empty() || option == app.get_help_ptr()) {
      continue;  // what stands behind the command
    }
    // Behind its own word the type tells what is checked: "S:NONNEGATIVE".
    const std::string type = option->get_type_name();
    const bool isFlag = option->get_expected_max() == 0;
    heads.push_back("-" + option->get_lnames().front() +
                    (isFlag ? "" : " Ar " + type.substr(0, type.find(':'))));
  }
  return heads;
}

/// "a", "b" and "c" of "a, b and c".
std::set<std::string> WordsOfList(const std::string& text) {
  std::set<std::string> words;
  std::string word;
  for (const char sign : text + " ") {
    if (sign != ' ' && sign != ',') {
      word += sign;
    } else if (!word.empty()) {
      words.insert(std::exchange(word, {}));
    }
  }
  words.erase("and");
  return words;
}

TEST(CtlManual, ListsEveryCommandAsItIsCalledWithItsOptions) {
  LINES listed;
  for (const MANUAL_ITEM& item : CtlItems("COMMANDS")) {
    listed.push_back(item.macro + " " + item.head);
  }
  LINES known;
  for (const ctl::COMMAND& command : ctl::CommandTable()) {
    const std::string form = command.form;
    known.push_back("Ic " + (command.name + (form.empty() ? "" : " " + form)));
    CLI::App app;
    ctl::ARGUMENTS arguments;
    command.declare(app, arguments);
    for (const std::string& head : OptionHeads(app)) {
      known.push_back("Fl " + head);
    }
  }
  EXPECT_EQ(listed, known);
}

TEST(CtlManual, NamesTheWordsOfTheCommandsThatHaveSome) {
  for (const MANUAL_ITEM& item : CtlItems("COMMANDS")) {
    const ctl::COMMAND* command = ctl::FindCommand(item.head.substr(0, item.head.find(' ')));
    if (item.macro != "Ic" || command == nullptr) {
      continue;
    }
    for (const std::string& word : WordsOfList(command->fixedWords)) {
      EXPECT_NE((item.head + " " + item.body).find(word), std::string::npos)
          << command->name << ": " << word;
    }
  }
}

TEST(CtlManual, ListsEveryOptionOfTheProgram) {
  std::set<std::string> listed;
  for (const MANUAL_ITEM& item : CtlItems("OPTIONS")) {
    EXPECT_EQ(item.macro, "Fl") << item.head;
    static const support::PATTERN kLong("(h , )?-([a-z-]+)( Ar [A-Z]+)?");
    const std::vector<std::string> match = kLong.Match(item.head);
    ASSERT_FALSE(match.empty()) << item.head;
    listed.insert("--" + match[2]);
  }
  const LINES options = ctl::ProgramOptions();
  EXPECT_EQ(listed, std::set<std::string>(options.begin(), options.end()));
}

TEST(CtlManual, ListsEveryParameterOfACard) {
  std::set<std::string> listed;
  for (const MANUAL_ITEM& item : CtlItems("COMMANDS", "Parameters")) {
    listed.merge(WordsOfList(item.head));
  }
  std::set<std::string> known;
  for (const client::CARD_PARAMETER& row : client::kCardParameters) {
    known.insert(row.name);
  }
  EXPECT_EQ(listed, known);
}

TEST(CtlManual, ListsEveryExitStatus) {
  std::set<std::string> listed;
  for (const MANUAL_ITEM& item : CtlItems("EXIT STATUS")) {
    listed.insert(item.macro);
  }
  std::set<std::string> known;
  for (const std::string& line : SplitLines(ReadFile("vornctl/ExitStatus.h"))) {
    static const support::PATTERN kStatus("  k[A-Za-z]+ = ([0-9]+),.*");
    if (const auto match = kStatus.Match(line); !match.empty()) {
      known.insert(match[1]);
    }
  }
  EXPECT_EQ(known.size(), 7U);
  EXPECT_EQ(listed, known);
}

// --- the settings -------------------------------------------------------------------------------

std::string WhyRefused(const std::string& text) {
  try {
    ctl::SETTINGS settings;
    ctl::ReadSettingsText(settings, text, "file");
  } catch (const ctl::FAILURE& failure) {
    return failure.what();
  }
  return {};
}

/// The keys that the program itself names, where it is given one that it does not know.
std::set<std::string> KnownKeys() {
  static const support::PATTERN kKeys("file:1: no setting 'nonsense': (.*) are known");
  const std::vector<std::string> match = kKeys.Match(WhyRefused("nonsense = 1\n"));
  return match.empty() ? std::set<std::string>{} : WordsOfList(match[1]);
}

TEST(CtlManual, ListsEveryKeyOfTheSettings) {
  std::set<std::string> listed;
  for (const MANUAL_ITEM& item : CtlItems("SETTINGS")) {
    listed.insert(item.head);
  }
  EXPECT_EQ(KnownKeys().size(), 7U);
  EXPECT_EQ(listed, KnownKeys());
}

TEST(CtlManual, ListsEveryTypeOfACard) {
  for (const MANUAL_ITEM& item : CtlItems("SETTINGS")) {
    if (item.head != "cards") {
      continue;
    }
    for (const client::CARD_TYPE& type : client::kCardTypes) {
      if (type.outputBlocks + type.inputBlocks > 0 || type.kind == client::CARD_KIND::kLcd ||
          type.kind == client::CARD_KIND::kIr) {
        EXPECT_NE((" " + item.body).find(" " + std::string(type.word) + " "), std::string::npos)
            << type.word;
      }
    }
  }
}

/// Has all keys, and is taken.
void ExpectGoodSettings(const std::string& text) {
  EXPECT_EQ(WhyRefused(text), "");
  for (const std::string& key : KnownKeys()) {
    EXPECT_NE(("\n" + text).find("\n" + key + " = "), ("\n" + text).find("\n[" + key + "]")) << key;
  }
}

TEST(CtlManual, ShowsAnExampleOfTheSettingsThatIsGood) {
  const std::string page = ManualText(kCtlPage);
  const std::size_t begin = page.find("host = \"");
  const std::size_t end = page.find(".Ed", begin);
  ASSERT_NE(end, std::string::npos);
  ExpectGoodSettings(page.substr(begin, end - begin));
}

TEST(CtlManual, TheInstalledExampleIsGoodWithAndWithoutItsMarks) {
  const std::string text = ReadFile("packaging/vornctl.toml");
  EXPECT_EQ(WhyRefused(text), "");
  std::string unmarked;
  for (const std::string& line : SplitLines(text)) {
    // What can be set stands behind "#" without a blank.
    const bool isSetting = line.size() > 1 && line[0] == '#' && line[1] != ' ' && line[1] != '#';
    unmarked += (isSetting ? line.substr(1) : line) + "\n";
  }
  ExpectGoodSettings(unmarked);
}

// --- completion ---------------------------------------------------------------------------------

TEST(CtlCompletion, TheInstalledScriptsAreThoseOfTheProgram) {
  EXPECT_EQ(ReadFile("packaging/completion/vornctl.bash"), ctl::BashCompletion());
  EXPECT_EQ(ReadFile("packaging/completion/_vornctl"), ctl::ZshCompletion());
}

// --- JSON ---------------------------------------------------------------------------------------

/// The types of the records that the sources make.
std::set<std::string> RecordTypes() {
  std::set<std::string> types;
  for (const std::filesystem::path& source : Sources("vornctl")) {
    const std::string text = ReadFile(source);
    for (const std::string start : {"{\"type\", \"", "ReadingRecord(\""}) {
      for (std::size_t at = text.find(start); at != std::string::npos; at = text.find(start, at)) {
        at += start.size();
        types.insert(text.substr(at, text.find('"', at) - at));
      }
    }
  }
  return types;
}

TEST(CtlManual, ListsEveryRecordOfTheJsonOutput) {
  std::set<std::string> listed;
  for (const MANUAL_ITEM& item : CtlItems("JSON OUTPUT")) {
    listed.insert(item.head);
  }
  EXPECT_EQ(listed, RecordTypes());
}

TEST(CtlSchema, DescribesEveryRecordAndAllowsNothingElse) {
  const auto schema = nlohmann::json::parse(ReadFile("docs/vornctl.schema.json"));
  std::set<std::string> described;
  for (const auto& reference : schema.at("oneOf")) {
    const std::string pointer = reference.at("$ref").get<std::string>().substr(1);
    const auto& record = schema.at(nlohmann::json::json_pointer(pointer));
    EXPECT_EQ(record.at("additionalProperties"), false) << pointer;
    EXPECT_FALSE(record.at("description").get<std::string>().empty()) << pointer;
    described.insert(record.at("properties").at("type").at("const").get<std::string>());
    for (const auto& [name, property] : record.at("properties").items()) {
      EXPECT_TRUE(property.contains("const") || property.contains("description"))
          << pointer << " " << name;
    }
  }
  EXPECT_EQ(described, RecordTypes());
}

}  // namespace

}  // namespace docs

}  // namespace vorn
