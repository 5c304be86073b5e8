#include "tests/unit/man/LogTexts.h"

#include "tests/support/Pattern.h"

#include <cctype>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <utility>

namespace unit {

namespace {

std::string ReadSource(const std::filesystem::path& path) {
  std::ifstream stream(path);
  std::ostringstream text;
  text << stream.rdbuf();
  return text.str();
}

/// A file's text, and its name.
std::vector<std::pair<std::string, std::string>> Sources() {
  std::vector<std::pair<std::string, std::string>> sources;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(VORN_SOURCES)) {
    if (entry.path().extension() == ".cpp" || entry.path().extension() == ".h") {
      sources.emplace_back(ReadSource(entry.path()), entry.path().filename().string());
    }
  }
  return sources;
}

/// The end of the literal that begins with the quote at `at`: behind its closing quote.
std::size_t EndOfLiteral(const std::string& text, std::size_t at) {
  for (++at; at < text.size() && text[at] != '"'; ++at) {
    if (text[at] == '\\') {
      ++at;
    }
  }
  return at + 1;
}

/// The arguments of a call, whose opening bracket stands at `at`: everything up to the closing one.
std::string Arguments(const std::string& text, std::size_t at) {
  const std::size_t begin = at + 1;
  int depth = 0;
  while (at < text.size()) {
    if (text[at] == '"') {
      at = EndOfLiteral(text, at);
      continue;
    }
    if (text[at] == '(') {
      ++depth;
    } else if (text[at] == ')' && --depth == 0) {
      break;
    }
    ++at;
  }
  return text.substr(begin, at - begin);
}

/// The literals of an expression, and "" where it begins or ends with something else.
std::vector<std::string> FixedParts(const std::string& expression) {
  std::vector<std::string> parts;
  bool variable = false;
  for (std::size_t at = 0; at < expression.size();) {
    const char c = expression[at];
    if (c == '"') {
      const std::size_t end = EndOfLiteral(expression, at);
      const std::string literal = expression.substr(at + 1, end - at - 2);
      if (!parts.empty() && !variable) {
        parts.back() += literal;  // adjacent literals are one
      } else {
        if (variable && parts.empty()) {
          parts.emplace_back();
        }
        parts.push_back(literal);
      }
      variable = false;
      at = end;
      continue;
    }
    variable = variable || std::isalnum(static_cast<unsigned char>(c)) != 0;
    ++at;
  }
  if (variable && !parts.empty()) {
    parts.emplace_back();
  }
  return parts;
}

}  // namespace

bool LOG_TEXT::Matches(const std::string& line) const {
  std::string pattern = "\\[" + tag + "\\] ";
  for (std::size_t i = 0; i < parts.size(); ++i) {
    pattern += (i == 0 ? "" : "\\S+") + support::PATTERN::Quoted(parts[i]);
  }
  return !support::PATTERN(pattern).Match(line).empty();
}

std::string LOG_TEXT::Shown() const {
  std::string text = source + ": [" + tag + "] ";
  for (std::size_t i = 0; i < parts.size(); ++i) {
    text += (i == 0 ? "" : "*") + parts[i];
  }
  return text;
}

std::vector<LOG_TEXT> LogTexts() {
  const support::PATTERN call(R"(\b(WriteLog|LogError|LogInfo)\()");
  std::vector<LOG_TEXT> texts;
  for (const auto& [text, name] : Sources()) {
    for (const support::MATCH& found : call.FindAll(text)) {
      const std::string& function = found.parts[1];
      const std::string arguments = Arguments(text, found.end - 1);
      const bool error = function == "LogError" || arguments.starts_with("kErr");
      const std::size_t comma = function == "WriteLog" ? arguments.find(',') + 1 : 0;
      const std::vector<std::string> parts = FixedParts(arguments.substr(comma));
      if (!parts.empty()) {
        texts.push_back({error ? "ERR" : "INF", parts, name});
      }
    }
  }
  return texts;
}

std::vector<std::string> Literals(const std::string& start) {
  std::vector<std::string> literals;
  for (const auto& [text, name] : Sources()) {
    for (std::size_t at = text.find('"' + start); at != std::string::npos;) {
      const std::size_t end = EndOfLiteral(text, at);
      literals.push_back(text.substr(at + 1, end - at - 2));
      at = text.find('"' + start, end);
    }
  }
  return literals;
}

}  // namespace unit
