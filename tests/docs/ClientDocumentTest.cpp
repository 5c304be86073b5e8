// docs/card-bus.md, docs/cae.md and docs/io.md: the client library knows what they say, all of it,
// and nothing else. It shares no code with the daemon: this is what the two meet in.

#include "client/BadValue.h"
#include "client/CaeRequest.h"
#include "client/Cards.h"
#include "client/IoLine.h"
#include "tests/docs/Markdown.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <tuple>

namespace vorn {

namespace docs {
namespace {

using client::CAE_REQUEST;
using client::CARD_KIND;
using client::LCD_ACTION;
using client::OUTCOME;

// --- cards --------------------------------------------------------------------------------------

/// The rows of the table of card types, by the name that DISCOVER lists.
std::map<std::string, ROW> DocumentedTypes() {
  std::map<std::string, ROW> types;
  for (const ROW& row : Tables(Section(ReadFile("docs/card-bus.md"), "## Card types"))) {
    if (row.size() == 8) {  // the other tables of the section have fewer columns
      types[CodeSpans(row[1]).at(0)] = row;
    }
  }
  return types;
}

int NumberIn(const std::string& cell) {
  return cell.empty() ? 0 : std::stoi(cell);
}

TEST(ClientDocument, ListsTheCardTypesOfTheClient) {
  std::map<std::string, ROW> documented = DocumentedTypes();
  for (const client::CARD_TYPE& type : client::kCardTypes) {
    SCOPED_TRACE(type.listedName);
    const auto found = documented.find(type.listedName);
    ASSERT_NE(found, documented.end());
    const ROW& row = found->second;
    EXPECT_EQ(row[2] == "input", type.inputBlocks > 0);
    EXPECT_EQ(NumberIn(row[5]), type.inputBlocks);
    EXPECT_EQ(NumberIn(row[6]), type.outputBlocks);
    EXPECT_EQ(!row[7].empty(), type.canBeAsked);
    EXPECT_TRUE(row[7].empty() || row[7] == row[5]);
    if (std::isdigit(static_cast<unsigned char>(type.listedName[0])) != 0) {
      EXPECT_EQ(std::stoi(type.listedName), type.channels);  // "6 channel RC SERVO CONTROLLER"
    } else {
      EXPECT_EQ(type.inputBlocks, type.channels);
    }
    documented.erase(found);
  }
  EXPECT_TRUE(documented.empty()) << documented.begin()->first;
}

/// "SETSCAc:" of "SETSCA0:0=10": the command as the table of parameters has it.
std::string WithChannel(const CAE_REQUEST& request, const std::string& channel) {
  std::string keyword = request.line.substr(0, request.line.find(':'));
  if (!channel.empty()) {
    keyword.back() = channel[0];
  }
  return keyword + ":";
}

TEST(ClientDocument, HasTheParametersAndActionsOfTheClient) {
  const std::map<std::string, CARD_KIND> kinds = {{"LCD", CARD_KIND::kLcd},
                                                  {"analogue", CARD_KIND::kAnalogue},
                                                  {"servo", CARD_KIND::kServo},
                                                  {"DC motor", CARD_KIND::kMotor}};
  std::map<std::string, std::string> cards;  // by the command
  std::string about;                         // the requests, in words
  const LINES section = Section(ReadFile("docs/card-bus.md"), "### Parameters and actions");
  for (const ROW& row : Tables(section)) {
    cards[CodeSpans(row.at(2)).at(0)] = row.at(0);
    about += row.at(1) + "\n";
  }
  std::set<std::string> known;
  for (const client::CARD_PARAMETER& row : client::kCardParameters) {
    SCOPED_TRACE(row.name);
    const std::string channel = row.channels == 1 ? "" : row.kind == CARD_KIND::kServo ? "c" : "p";
    std::vector<CAE_REQUEST> requests = {client::SetParameter(0, row.parameter, 0, 0)};
    if (row.canBeRead) {
      requests.push_back(client::AskParameter(0, row.parameter, 0));
    }
    for (const CAE_REQUEST& request : requests) {
      const std::string command = WithChannel(request, channel);
      known.insert(command);
      ASSERT_EQ(cards.count(command), 1U) << command;
      EXPECT_EQ(kinds.at(cards.at(command)), row.kind);
    }
    if (!channel.empty()) {
      const std::string range =
          "channel " + channel + " (0 to " + std::to_string(row.channels - 1) + ")";
      EXPECT_NE(about.find(range), std::string::npos) << range;
    }
    if (row.largest != 0xFF) {
      EXPECT_NE(about.find(" to " + client::HexByte(row.largest) + "\n"), std::string::npos);
    }
  }
  for (const CAE_REQUEST& request :
       {client::Reboot(0), client::StoreMask(0), client::StorePositions(0),
        client::RecallPositions(0), client::StoreSilentRanges(0)}) {
    known.insert(WithChannel(request, ""));
  }
  std::set<std::string> documented;
  for (const auto& [command, card] : cards) {
    documented.insert(command);
  }
  EXPECT_EQ(documented, known);
}

// --- CAE ----------------------------------------------------------------------------------------

constexpr int kValueRead = 0x2A;

/// Each of the typed calls, with the parameters that the examples have.
std::vector<CAE_REQUEST> TypedCalls() {
  using client::PARAMETER;
  return {
      client::SetSpeed(50),
      client::EnablePolling(false),
      client::AskVersion(),
      client::SetParameter(14, PARAMETER::kSelfTest, 0, 0x00),
      client::SetParameter(14, PARAMETER::kInitialLight, 0, 0xFF),
      client::SetParameter(5, PARAMETER::kInitialLight, 0, 0xFF),
      client::Reboot(5),
      client::SetParameter(15, PARAMETER::kMask, 0, 0x0F),
      client::AskParameter(15, PARAMETER::kMask, 0),
      client::StoreMask(15),
      client::StorePositions(0),
      client::RecallPositions(0),
      client::SetParameter(0, PARAMETER::kEndA, 0, 0x10),
      client::SetParameter(0, PARAMETER::kEndB, 3, 0x7F),
      client::AskParameter(0, PARAMETER::kEndA, 5),
      client::AskParameter(0, PARAMETER::kEndB, 3),
      client::SetParameter(1, PARAMETER::kSilentRange, 2, 0x08),
      client::AskParameter(1, PARAMETER::kSilentRange, 1),
      client::StoreSilentRanges(1),
      client::PollCard(5, true),
      client::PollCard(3, false),
      client::EnablePolling(true),
      client::AskPollState(),
      client::ListCards(),
      client::IdentifyCards(),
      client::EndCae(),
      client::AskLastInput(3, 0),
      client::AskLastInput(3, 2),
      client::AskHelp(),
      client::AskIoExamples(),
  };
}

using FIELDS = std::map<std::string, std::string>;  // "vv": "7F"

/// What stands in a line where the form has its parameters; nothing where the line is not of it.
std::optional<FIELDS> FieldsOf(const std::string& form, const std::string& line) {
  FIELDS fields;
  std::size_t at = 0;
  for (std::size_t i = 0; i < form.size();) {
    if (std::islower(static_cast<unsigned char>(form[i])) == 0) {
      if (at >= line.size() || line[at] != form[i]) {
        return std::nullopt;
      }
      ++at;
      ++i;
      continue;
    }
    const std::string name = form.substr(i, form.find_first_not_of(form[i], i) - i);
    const bool isWord = name == "ss" || name == "ppp";
    fields[name] = line.substr(at, isWord ? std::string::npos : name.size());
    i += name.size();
    at += fields[name].size();
  }
  return at == line.size() ? std::optional(fields) : std::nullopt;
}

/// A text of the table of answers with the parameters in it: "... at address x".
std::string WithFields(const std::string& text, const FIELDS& fields) {
  std::string filled;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find_first_of(" %", at), text.size());
    const auto field = fields.find(text.substr(at, end - at));
    filled += field == fields.end() ? text.substr(at, end - at) : field->second;
    filled += text.substr(end, 1);
    at = end + 1;
  }
  return filled;
}

/// The same of a line for programs: "SPS:0x%X:SC%s%s:0x%.2X", with the names of its fields.
std::string WithNumbers(const std::string& format, const LINES& names, const FIELDS& fields) {
  std::string filled;
  std::size_t next = 0;
  for (std::size_t at = 0; at < format.size(); ++at) {
    if (format[at] != '%') {
      filled += format[at];
      continue;
    }
    filled += fields.at(names.at(next++));
    at = format.find_first_of("Xsd", at);
  }
  return filled;
}

/// "x, p, c" of a cell that ends with "(x, p, c)", one by one.
LINES NamesIn(const std::string& cell) {
  LINES names;
  std::string list = cell.substr(cell.rfind('(') + 1);
  for (const char character : list) {
    if (std::isalpha(static_cast<unsigned char>(character)) == 0) {
      names.emplace_back();
    } else {
      names.resize(std::max<std::size_t>(names.size(), 1));
      names.back() += character;
    }
  }
  std::erase(names, "");
  return names;
}

/// A command of the document: its form, its answers, and the typed calls that make it.
struct DOCUMENTED {
  std::string form;
  std::string good;  ///< the cell
  std::string failure;
  std::string refusal;
  std::vector<CAE_REQUEST> calls;
};

std::vector<DOCUMENTED> DocumentedCommands() {
  const std::string document = ReadFile("docs/cae.md");
  const std::vector<ROW> commands = Tables(Section(document, "## Commands"));
  const std::vector<ROW> answers = Tables(Section(document, "## Answers"));
  EXPECT_EQ(commands.size(), answers.size());
  std::vector<DOCUMENTED> all;
  std::string lastRefusal;
  for (std::size_t i = 0; i < commands.size(); ++i) {
    const ROW& answer = answers.at(i);
    const std::string form = CodeSpans(commands[i].at(0)).at(0);
    EXPECT_TRUE(form.starts_with(CodeSpans(answer.at(0)).at(0))) << form;
    lastRefusal = answer.at(3) == "the same" ? lastRefusal : answer.at(3);
    const auto text = [](const std::string& cell) {
      return cell.empty() ? "" : CodeSpans(cell).at(0);
    };
    all.push_back({form, answer.at(1), text(answer.at(2)), text(lastRefusal), {}});
    for (const CAE_REQUEST& call : TypedCalls()) {
      if (FieldsOf(form, call.line)) {
        all.back().calls.push_back(call);
      }
    }
  }
  return all;
}

TEST(ClientDocument, HasTheCommandsThatTheClientMakes) {
  std::set<client::CAE_COMMAND> made;
  std::set<std::string> documented;
  for (const DOCUMENTED& command : DocumentedCommands()) {
    EXPECT_FALSE(command.calls.empty()) << command.form;
    for (const CAE_REQUEST& call : command.calls) {
      EXPECT_EQ(call.command, command.calls.front().command) << call.line;
      made.insert(call.command);
      documented.insert(call.line);
    }
  }
  for (const CAE_REQUEST& call : TypedCalls()) {
    EXPECT_TRUE(documented.contains(call.line)) << call.line;
  }
  EXPECT_EQ(made.size(), static_cast<std::size_t>(client::CAE_COMMAND::kTyped));  // the last
}

/// What is understood of an answer, the prompt included; nothing where it is another's.
std::optional<client::CAE_RESULT> Understood(const CAE_REQUEST& request, const LINES& lines) {
  client::CAE_ANSWER answer(request);
  for (const std::string& line : lines) {
    if (answer.Take(line)) {
      return answer.Result();
    }
  }
  return answer.Take(client::kPrompt) ? std::optional(answer.Result()) : std::nullopt;
}

/// The 16 slots as the document lists them: all its card types, then the first of them again.
LINES DocumentedSlots(const std::string& format, client::CARD_LIST& cards) {
  LINES lines;
  while (lines.size() < cards.size()) {
    for (const auto& [name, row] : DocumentedTypes()) {
      if (lines.size() == cards.size()) {
        break;
      }
      const client::CARD_TYPE* const type = client::FindTypeByListedName(name);
      cards.at(lines.size()) = type == nullptr ? CARD_KIND::kEmpty : type->kind;
      const std::string digit(1, client::AddressDigit(static_cast<int>(lines.size())));
      lines.push_back(WithNumbers(format, {"x", "s"}, {{"x", digit}, {"s", name}}));
    }
  }
  return lines;
}

/// The answer of the document to a call, and what it says.
struct EXPECTED {
  LINES lines;
  decltype(client::CAE_RESULT::value) value;
};

EXPECTED GoodAnswer(const DOCUMENTED& command, const CAE_REQUEST& call) {
  const LINES spans = CodeSpans(command.good);
  if (call.command == client::CAE_COMMAND::kHelp ||
      call.command == client::CAE_COMMAND::kIoExamples) {
    const LINES section = Section(ReadFile("docs/cae.md"), "## " + command.form);
    return {Blocks(section, "text").at(0), {}};
  }
  if (call.command == client::CAE_COMMAND::kPollState) {  // enabled, disabled, PTI, ON, OFF
    return {{spans.at(1), WithNumbers(spans.at(2), {"x", "s"}, {{"x", "3"}, {"s", spans.at(3)}}),
             WithNumbers(spans.at(2), {"x", "s"}, {{"x", "F"}, {"s", spans.at(4)}})},
            client::POLL_STATE{false, {{3, true}, {15, false}}}};
  }
  if (call.command == client::CAE_COMMAND::kListCards ||
      call.command == client::CAE_COMMAND::kIdentify) {
    client::CARD_LIST cards{};
    LINES lines = DocumentedSlots("DTI:0x%X:%s", cards);
    lines.insert(lines.begin(), spans.at(0));
    return {lines, cards};
  }
  FIELDS fields = *FieldsOf(command.form, call.line);
  EXPECTED expected{{WithFields(spans.at(0), fields)}, {}};
  fields["value"] = fields["mask"] = client::HexByte(kValueRead);
  if (spans.size() > 1) {
    const bool hasNames = command.good.back() == ')';
    const LINES names = hasNames ? NamesIn(command.good) : LINES();
    expected.lines.push_back(WithNumbers(spans.at(1), names, fields));
    if (hasNames && (names.back() == "value" || names.back() == "mask")) {
      expected.value = static_cast<std::uint8_t>(kValueRead);
    }
  }
  if (call.command == client::CAE_COMMAND::kDriverVersion) {
    expected.value = std::string("1.20");
  }
  return expected;
}

template <typename TYPE>
bool SaysTheSame(const decltype(client::CAE_RESULT::value)& said, const TYPE& expected) {
  const TYPE* const value = std::get_if<TYPE>(&said);
  return value != nullptr && *value == expected;
}

TEST(ClientDocument, HasTheAnswersThatTheClientUnderstands) {
  for (const DOCUMENTED& command : DocumentedCommands()) {
    for (const CAE_REQUEST& call : command.calls) {
      SCOPED_TRACE(call.line);
      const EXPECTED expected = GoodAnswer(command, call);
      const auto result = Understood(call, expected.lines);
      ASSERT_TRUE(result) << testing::PrintToString(expected.lines);
      EXPECT_EQ(result->outcome, OUTCOME::kDone);
      EXPECT_EQ(result->lines, expected.lines);
      EXPECT_TRUE(std::visit([&](const auto& value) { return SaysTheSame(result->value, value); },
                             expected.value));
    }
  }
}

/// Whether the answer to one call may be that to another: where nothing in it tells them apart.
bool MayAnswer(const CAE_REQUEST& asked, const CAE_REQUEST& other) {
  using client::CAE_COMMAND;
  if (asked.command == CAE_COMMAND::kLastInput) {
    return other.command == CAE_COMMAND::kLastInput;  // neither address nor block is in it
  }
  if (asked.command == CAE_COMMAND::kPollState) {  // of a rack without input cards
    return asked.line == other.line || other.command == CAE_COMMAND::kEnablePolling ||
           other.command == CAE_COMMAND::kDisablePolling;
  }
  return asked.line == other.line;
}

TEST(ClientDocument, HasNoAnswerThatTheClientTakesForThatOfAnotherCommand) {
  const std::vector<DOCUMENTED> commands = DocumentedCommands();
  for (const DOCUMENTED& command : commands) {
    for (const DOCUMENTED& other : commands) {
      for (const CAE_REQUEST& call : other.calls) {
        const LINES lines = GoodAnswer(other, call).lines;
        for (const CAE_REQUEST& asked : command.calls) {
          EXPECT_EQ(Understood(asked, lines).has_value(), MayAnswer(asked, call))
              << asked.line << " and the answer to " << call.line;
        }
      }
    }
  }
}

TEST(ClientDocument, HasTheRefusalsThatTheClientUnderstands) {
  const std::vector<DOCUMENTED> commands = DocumentedCommands();
  std::set<std::string> texts = {"CIE: SOMETHING ELSE"};
  for (const DOCUMENTED& command : commands) {
    texts.insert({command.failure, command.refusal});
  }
  texts.erase("");
  const LINES spans = CodeSpans(ReadFile("docs/cae.md"));
  const std::string unknown = "CIE: UNKNOWN COMMAND ";
  ASSERT_NE(std::find(spans.begin(), spans.end(), unknown), spans.end());
  for (const DOCUMENTED& command : commands) {
    for (const CAE_REQUEST& call : command.calls) {
      for (const std::string& text : texts) {
        const auto result = Understood(call, {text});
        EXPECT_EQ(result.has_value(), text == command.failure || text == command.refusal)
            << call.line << ": " << text;
        EXPECT_TRUE(!result || result->outcome == OUTCOME::kRefused) << call.line << ": " << text;
      }
      const auto result = Understood(call, {unknown});
      ASSERT_TRUE(result) << call.line;
      EXPECT_EQ(result->outcome, OUTCOME::kRefused) << call.line;
    }
  }
}

TEST(ClientDocument, HasExamplesOfCaeThatTheClientMakesAndUnderstands) {
  std::map<std::string, CAE_REQUEST> calls;
  for (const CAE_REQUEST& call : TypedCalls()) {
    calls[call.line] = call;
  }
  const std::vector<ROW> rows = Tables(Section(ReadFile("docs/cae.md"), "## Examples"));
  ASSERT_FALSE(rows.empty());
  for (const ROW& row : rows) {
    const std::string line = CodeSpans(row.at(0)).at(0);
    SCOPED_TRACE(line);
    if (line == "SPEED=101") {
      EXPECT_THROW(client::SetSpeed(101), client::BAD_VALUE);
      continue;
    }
    ASSERT_TRUE(calls.contains(line));
    const LINES answer = CodeSpans(row.at(2));
    const auto result = Understood(calls.at(line), answer);
    ASSERT_TRUE(result);
    const bool isDone = answer.front().starts_with("CIA: ");
    EXPECT_EQ(result->outcome, isDone ? OUTCOME::kDone : OUTCOME::kRefused);
    const bool isRead = answer.back().ends_with(":0x2A");
    EXPECT_EQ(SaysTheSame(result->value, static_cast<std::uint8_t>(kValueRead)), isRead);
  }
}

// --- IO -----------------------------------------------------------------------------------------

/// A form of the document, what is put into its places one after the other, and the line that the
/// client makes so.
struct IO_FORM {
  std::string form;
  std::vector<std::pair<std::string, std::string>> places;
  std::string line;
};

std::vector<IO_FORM> MadeIoForms() {
  return {
      {"aAbBdDD", {{"A", "5"}, {"B", "1"}, {"DD", "FB"}}, client::BlockLine(5, 1, 0xFB)},
      {"aAlCL", {{"A", "E"}}, client::LcdLine(14, LCD_ACTION::kClear)},
      {"aAlLO", {{"A", "E"}}, client::LcdLine(14, LCD_ACTION::kLightOn)},
      {"aAlLF", {{"A", "E"}}, client::LcdLine(14, LCD_ACTION::kLightOff)},
      {"aAlCO", {{"A", "E"}}, client::LcdLine(14, LCD_ACTION::kCursorOn)},
      {"aAlCF", {{"A", "E"}}, client::LcdLine(14, LCD_ACTION::kCursorOff)},
      {"aAlBO", {{"A", "E"}}, client::LcdLine(14, LCD_ACTION::kBlinkOn)},
      {"aAlBF", {{"A", "E"}}, client::LcdLine(14, LCD_ACTION::kBlinkOff)},
      {"aAlPApXXYYtTEXT",
       {{"A", "E"}, {"XX", "13"}, {"YY", "02"}, {"TEXT", "the cat"}},
       client::LcdTextLine(14, 0x13, 2, "the cat")},
      {"aAsHSH1H2H3....Hn",
       {{"A", "9"}, {"H1H2H3....Hn", "00FF4A"}},
       client::IrLine(9, {0x00, 0xFF, 0x4A})},
      {"EXIT", {}, std::string(client::kIoExit)},
  };
}

TEST(ClientDocument, HasTheFormsOfIoThatTheClientMakes) {
  std::map<std::string, std::string> documented;  // with the whole row
  for (const ROW& row : Tables(Section(ReadFile("docs/io.md"), "## IO: commands to cards"))) {
    if (row[0].starts_with("`a") || row[0] == "`EXIT`") {
      documented[CodeSpans(row[0]).at(0)] = row[1];
    }
  }
  std::set<std::string> made;
  for (const IO_FORM& form : MadeIoForms()) {
    EXPECT_TRUE(documented.contains(form.form)) << form.form;
    std::string expected = form.form;
    std::size_t at = 0;
    for (const auto& [place, content] : form.places) {
      at = expected.find(place, at);
      ASSERT_NE(at, std::string::npos) << form.form;
      expected.replace(at, place.size(), content);
      at += content.size();
    }
    EXPECT_EQ(form.line, expected);
    made.insert(form.form);
  }
  EXPECT_EQ(made.size(), documented.size());
  const auto atMost = [](std::size_t limit) { return "at most " + std::to_string(limit); };
  EXPECT_NE(documented["aAlPApXXYYtTEXT"].find(atMost(client::kLongestLcdText)), std::string::npos);
  EXPECT_NE(documented["aAsHSH1H2H3....Hn"].find(atMost(client::kLongestIrStream)),
            std::string::npos);
}

TEST(ClientDocument, HasExamplesOfIoThatTheClientMakes) {
  const std::vector<std::uint8_t> cockroach = {'C', 'O', 'C', 'K', 'R', 'O', 'A', 'C', 'H'};
  std::set<std::string> made = {
      client::BlockLine(5, 1, 0xFB),
      client::BlockLine(5, 1, 0xFF),
      client::BlockLine(5, 0, 0x00),
      client::BlockLine(0, 4, 0x80),
      client::BlockLine(0, 0, 0xFF),
      client::BlockLine(1, 0, 0x40),
      client::BlockLine(1, client::kMotorControlBlock, 0x01),
      client::BlockLine(3, 0, 0x01),
      client::LcdTextLine(14, 3, 1, "Tail of the cat"),
      client::IrLine(9, cockroach),
      client::LcdLine(5, LCD_ACTION::kClear)};  // refused: it is the card that is none
  for (const IO_FORM& form : MadeIoForms()) {
    made.insert(form.line);
  }
  // What is misread, and what is refused, is not made; it may be typed all the same.
  const std::set<std::string> typed = {"a5b1dfb", "afb1d10",    "a5b1d",
                                       "aElXX",   "aElPAp0301", "hello"};
  const std::vector<ROW> rows = Tables(Section(ReadFile("docs/io.md"), "## Examples"));
  ASSERT_FALSE(rows.empty());
  for (const ROW& row : rows) {
    const std::string line = CodeSpans(row.at(0)).at(0);
    EXPECT_EQ(made.contains(line), !typed.contains(line)) << line;
    EXPECT_EQ(client::TypedIoLine(line), line);
    const bool isBlock = line.size() == 7 && line[2] == 'b' && !typed.contains(line);
    EXPECT_EQ(client::ReadBlockLine(line).has_value(), isBlock) << line;
  }
}

TEST(ClientDocument, HasTheReportsOfRefusedLines) {
  const std::string document = ReadFile("docs/io.md");
  const LINES section = Section(document, "## IO: commands to cards");
  const auto report = std::find_if(section.begin(), section.end(), [](const std::string& line) {
    return line.find("COE:") != std::string::npos && line.starts_with("    ");
  });
  ASSERT_NE(report, section.end());
  const auto refusal = client::ReadRefusal(report->substr(4));
  ASSERT_TRUE(refusal);
  EXPECT_EQ(refusal->line, "aElXX");
  EXPECT_FALSE(refusal->isFault);
  EXPECT_EQ("    " + std::string(client::kPrompt), *(report + 1));
  const LINES spans = CodeSpans(document);
  const auto fault = std::find_if(spans.begin(), spans.end(),
                                  [](const std::string& span) { return span.starts_with("COE:"); });
  ASSERT_NE(fault, spans.end());
  const auto failed = client::ReadRefusal(*fault + "a5b1dFF");
  ASSERT_TRUE(failed);
  EXPECT_EQ(failed->line, "a5b1dFF");
  EXPECT_TRUE(failed->isFault);
}

TEST(ClientDocument, HasTheInputLineThatTheClientReads) {
  const LINES section = Section(ReadFile("docs/io.md"), "## IO: input changes");
  const auto line = std::find_if(section.begin(), section.end(),
                                 [](const std::string& text) { return text.starts_with("    a"); });
  ASSERT_NE(line, section.end());
  const auto change = client::ReadBlockLine(line->substr(4));
  ASSERT_TRUE(change);
  EXPECT_EQ(client::BlockLine(change->address, change->block, change->value), line->substr(4));
}

TEST(ClientDocument, TellsHowLongALineMayBe) {
  const std::string separator = "\r\n";
  const std::string cae = std::to_string(client::kLongestCaeLine + separator.size());
  const std::string io = std::to_string(client::kLongestIoLine + separator.size());
  EXPECT_NE(ReadFile("docs/cae.md").find("A read takes at most " + cae + " bytes"),
            std::string::npos);
  EXPECT_NE(ReadFile("docs/io.md").find("A line of more than " + io + " bytes is cut"),
            std::string::npos);
}

}  // namespace
}  // namespace docs

}  // namespace vorn
