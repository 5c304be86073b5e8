#include "sim/tool/Help.h"

#include "sim/rack/Protocol.h"

#include <algorithm>
#include <cctype>

namespace sim {

namespace {

using WORDS = std::vector<std::string>;

/// What is too long for the first column gets a line of its own.
std::string InColumns(std::string first, const std::string& second) {
  constexpr std::size_t kColumn = 38;
  const bool fits = first.size() < kColumn;
  first += fits ? std::string(kColumn - first.size(), ' ') : "\n" + std::string(kColumn, ' ');
  return first + second;
}

std::string Line(const COMMAND& command) {
  return InColumns(std::string(command.word) + " " + command.arguments, command.help);
}

bool IsWordLetter(char c) {
  return std::isalpha(static_cast<unsigned char>(c)) != 0 || c == '-';
}

/// The words of a usage, without its brackets and bars.
WORDS WordsOf(const std::string& usage) {
  WORDS words;
  auto at = usage.begin();
  while ((at = std::find_if(at, usage.end(), IsWordLetter)) != usage.end()) {
    const auto end = std::find_if_not(at, usage.end(), IsWordLetter);
    words.emplace_back(at, end);
    at = end;
  }
  return words;
}

template <class ROWS>
WORDS Keywords(const ROWS& rows) {
  WORDS words;
  for (const auto& row : rows) {
    words.emplace_back(row.keyword);
  }
  return words;
}

std::string Listed(const char* caption, const WORDS& words) {
  std::string text = std::string("\n  ") + caption + ":";
  for (const std::string& word : words) {
    text += " " + word;
  }
  return text;
}

WORDS CommandWords() {
  WORDS words;
  for (const COMMAND& row : Commands()) {
    words.emplace_back(row.word);
  }
  return words;
}

WORDS FaultWords() {
  WORDS words = Keywords(kFaultTypes);
  const WORDS lengths = Keywords(kLengthWords);
  words.insert(words.end(), lengths.begin(), lengths.end());
  return words;
}

std::string FaultLines() {
  std::string text;
  for (const FAULT_TYPE& row : kFaultTypes) {
    text += "\n" + InColumns(std::string("  ") + row.keyword + " " + row.usage, row.meaning);
  }
  return text;
}

WORDS CodeWords() {
  WORDS words = Keywords(kErrorCodes);
  const WORDS requests = Keywords(kRequestCodes);
  words.insert(words.end(), requests.begin(), requests.end());
  return words;
}

WORDS ParameterWords() {
  WORDS words;
  for (const PARAMETER& row : kParameters) {
    words.emplace_back(row.name);
  }
  return words;
}

std::string Nothing() {
  return {};
}

std::string ErrorCodeLines() {
  return Listed("error codes", Keywords(kErrorCodes));
}

WORDS TypeWords() {
  return Keywords(kCardTypes);
}

std::string TypeLines() {
  return Listed("types", TypeWords());
}

/// What may stand for a placeholder, and what 'help' and the command say of it.
struct PLACEHOLDER {
  const char* name;
  WORDS (*words)();
  std::string (*details)();
};
constexpr PLACEHOLDER kPlaceholders[] = {
    {"COMMAND", CommandWords, Nothing},  {"KIND", FaultWords, FaultLines},
    {"CODE", CodeWords, ErrorCodeLines}, {"TYPE", TypeWords, TypeLines},
    {"NAME", ParameterWords, Nothing},
};

const PLACEHOLDER* FindPlaceholder(const std::string& word) {
  const auto* found = std::find_if(std::begin(kPlaceholders), std::end(kPlaceholders),
                                   [&](const PLACEHOLDER& row) { return word == row.name; });
  return found == std::end(kPlaceholders) ? nullptr : found;
}

}  // namespace

std::string HelpText() {
  std::string text;
  for (const COMMAND& command : Commands()) {
    text += (text.empty() ? "" : "\n") + Line(command);
  }
  return text;
}

std::string HelpText(const COMMAND& command) {
  std::string text = Line(command);
  for (const std::string& word : WordsOf(command.arguments)) {
    if (const PLACEHOLDER* placeholder = FindPlaceholder(word)) {
      text += placeholder->details();
    }
  }
  return text;
}

std::vector<std::string> Complete(const std::string& before) {
  const std::size_t begin = std::min(before.find_first_not_of(' '), before.size());
  const std::size_t end = before.find(' ', begin);
  if (end == std::string::npos) {
    return CommandWords();
  }
  const COMMAND* command = FindCommand(before.substr(begin, end - begin));
  WORDS words;
  for (const std::string& word : WordsOf(command != nullptr ? command->arguments : "")) {
    if (const PLACEHOLDER* placeholder = FindPlaceholder(word)) {
      const WORDS more = placeholder->words();
      words.insert(words.end(), more.begin(), more.end());
    } else if (std::none_of(word.begin(), word.end(),
                            [](char c) { return c >= 'A' && c <= 'Z'; })) {
      words.push_back(word);
    }
  }
  return words;
}

}  // namespace sim
