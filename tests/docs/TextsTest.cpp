// What vorn says stands in the documents, and what they quote of the log is what vorn says.

#include "tests/docs/Manual.h"
#include "tests/docs/Markdown.h"
#include "tests/support/Pattern.h"
#include "vorn/config/ConfigReader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <pugixml.hpp>
#include <set>

namespace vorn {

namespace docs {
namespace {

std::string AllDocuments() {
  std::string all;
  for (const std::filesystem::path& document : Documents()) {
    all += ReadFile(document);
  }
  return all;
}

bool Holds(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

/// A text for people or clients: it has a blank, a colon or a printf field in it. Line ends around
/// it, written as \n, are the printer's.
std::string SpokenPart(std::string literal) {
  for (const std::string end : {"\\n", "\\r"}) {
    while (literal.size() >= 2 && literal.compare(0, 2, end) == 0) {
      literal.erase(0, 2);
    }
    while (literal.size() >= 2 && literal.compare(literal.size() - 2, 2, end) == 0) {
      literal.resize(literal.size() - 2);
    }
  }
  return literal.size() > 2 && literal.find_first_of(" :%") != std::string::npos ? literal : "";
}

/// What stands between the words that are put into a text.
LINES Pieces(std::string text) {
  for (std::size_t at = 0; (at = text.find("%s", at)) != std::string::npos;) {
    text.replace(at, 2, "\n");
  }
  return SplitLines(text);
}

TEST(Documents, HoldEveryTextOfTheDaemon) {
  const std::string documents = AllDocuments();
  std::size_t count = 0;
  for (const std::filesystem::path& source : Sources("vorn")) {
    for (const std::string& literal : Literals(ReadFile(source))) {
      // The document has a name where a word comes.
      for (const std::string& piece :
           Holds(documents, literal) ? LINES{literal} : Pieces(literal)) {
        const std::string text = SpokenPart(piece);
        if (!text.empty()) {
          EXPECT_TRUE(Holds(documents, text)) << source << ": \"" << text << "\"";
          ++count;
        }
      }
    }
  }
  EXPECT_GT(count, 100U);  // the reader of sources still finds them
}

// --- the log ------------------------------------------------------------------------------------

/// A log line as a source builds it, as a pattern; empty where it has no fixed part.
std::string PatternOf(const std::string& expression) {
  std::string pattern;
  std::size_t at = 0;
  const auto addVariable = [&](std::size_t end) {
    const bool isThere = std::any_of(expression.begin() + static_cast<std::ptrdiff_t>(at),
                                     expression.begin() + static_cast<std::ptrdiff_t>(end),
                                     [](unsigned char c) { return std::isalnum(c) != 0; });
    pattern += isThere ? "\\S+" : "";
  };
  for (const std::string& literal : Literals(expression)) {
    const std::size_t begin = expression.find('"' + literal + '"', at);
    addVariable(begin);
    pattern += support::PATTERN::Quoted(literal);
    at = begin + literal.size() + 2;
  }
  if (at > 0) {
    addVariable(expression.size());
  }
  return pattern;
}

/// Of every log line of the daemon's sources that has a fixed part, with its tag.
std::vector<std::string> LoggedPatterns() {
  std::vector<std::string> patterns;
  for (const std::filesystem::path& source : Sources("vorn")) {
    const std::string code = ReadFile(source);
    for (const std::string function : {"WriteLog", "LogError", "LogInfo"}) {
      for (std::string arguments : Calls(code, function)) {
        const bool isError = function == "LogError" || arguments.starts_with("(kErr");
        arguments.erase(0, function == "WriteLog" ? arguments.find(',') + 1 : 0);
        const std::string pattern = PatternOf(arguments);
        if (!pattern.empty()) {
          patterns.push_back((isError ? "\\[ERR\\] " : "\\[INF\\] ") + pattern);
        }
      }
    }
  }
  return patterns;
}

/// The error texts of an unusable configuration, which are logged as they are.
std::set<std::string> ConfigurationErrors() {
  pugi::xml_document document;
  document.load_string(
      "<VORNConfig><Interfaces><I Name='NAME' Port='1'/></Interfaces></VORNConfig>");
  return {std::string("[ERR] ") + kConfigLoadError,
          "[ERR] " + ReadConfigDocument(document).errorText};
}

LINES LinesOfTheDocument() {
  LINES lines;
  for (const std::string& line : SplitLines(ReadFile("docs/log.md"))) {
    if (line.starts_with("| `[")) {
      lines.push_back(CodeSpans(line).at(0));
    }
  }
  return lines;
}

LINES LinesOfTheManual() {
  LINES lines;
  for (const MANUAL_ITEM& item : ManualItems("vorn.8")) {
    if (item.section == "DIAGNOSTICS" && item.head.starts_with('[')) {
      lines.push_back(item.head);
    }
  }
  return lines;
}

TEST(LogLines, AreAllExplainedAndNoneIsThatIsGone) {
  const std::vector<std::string> patterns = LoggedPatterns();
  EXPECT_GT(patterns.size(), 25U);
  const std::set<std::string> errors = ConfigurationErrors();
  for (const LINES& listed : {LinesOfTheDocument(), LinesOfTheManual()}) {
    std::set<std::string> gone(listed.begin(), listed.end());
    for (const std::string& pattern : patterns) {
      const support::PATTERN logged(pattern);
      bool isExplained = false;
      for (const std::string& line : listed) {
        if (!logged.Match(line).empty()) {
          isExplained = true;
          gone.erase(line);
        }
      }
      EXPECT_TRUE(isExplained) << pattern;
    }
    for (const std::string& line : gone) {
      EXPECT_TRUE(errors.contains(line)) << line;
    }
  }
  for (const std::string& error : errors) {
    const LINES listed = LinesOfTheManual();
    EXPECT_NE(std::find(listed.begin(), listed.end(), error), listed.end()) << error;
  }
}

}  // namespace
}  // namespace docs

}  // namespace vorn
