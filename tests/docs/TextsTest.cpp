// What vorn says stands in the documents, and what the log's document quotes is what vorn says.

#include "tests/docs/Markdown.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

namespace docs {
namespace {

std::string AllDocuments() {
  std::string all;
  for (const std::filesystem::path& document : Documents()) {
    all += ReadFile(document);
  }
  return all;
}

std::string AllSources() {
  std::string all;
  for (const char* const folder : {"vorn", "thread"}) {
    for (const std::filesystem::path& source : Sources(folder)) {
      all += ReadFile(source);
    }
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

TEST(LogDocument, HoldsEveryTextThatIsLogged) {
  const std::string document = ReadFile("docs/log.md");
  std::size_t count = 0;
  for (const std::filesystem::path& source : Sources("vorn")) {
    const std::string code = ReadFile(source);
    for (const char* const function : {"WriteLog", "LogError", "LogInfo", "syslog"}) {
      for (const std::string& call : Calls(code, function)) {
        for (const std::string& text : Literals(call)) {
          if (text.size() > 2) {
            EXPECT_TRUE(Holds(document, text)) << source << ": \"" << text << "\"";
            ++count;
          }
        }
      }
    }
  }
  EXPECT_GT(count, 20U);
}

/// The fixed pieces of a line such as "[INF] NAME interface listening on port PORT".
LINES FixedPieces(std::string line) {
  line.erase(0, std::string("[INF] ").size());
  for (const std::string field : {"NAME", "PORT", "DEVICE", "TEXT", "TRUE", "127.0.0.1:", "DMI"}) {
    for (std::size_t at = 0; (at = line.find(field, at)) != std::string::npos;) {
      line.replace(at, field.size(), "\n");
    }
  }
  LINES pieces;
  for (std::string piece : SplitLines(line)) {
    // "N" stands for a number where it is a word of its own.
    for (const std::string number : {" N ", " N"}) {
      const std::size_t at = piece.find(number);
      if (at != std::string::npos) {
        pieces.push_back(piece.substr(0, at + 1));
        piece.erase(0, at + 2);
      }
    }
    pieces.push_back(piece == "N" ? "" : piece);
  }
  return pieces;
}

TEST(LogDocument, QuotesOnlyLinesThatAreLogged) {
  const std::string sources = AllSources();
  std::size_t count = 0;
  for (const std::string& line : SplitLines(ReadFile("docs/log.md"))) {
    if (line.compare(0, 3, "| `") != 0 || line.compare(3, 1, "[") != 0) {
      continue;
    }
    for (const std::string& piece : FixedPieces(CodeSpans(line).at(0))) {
      EXPECT_TRUE(Holds(sources, piece)) << "\"" << piece << "\" of " << line;
    }
    ++count;
  }
  EXPECT_GT(count, 25U);
}

}  // namespace
}  // namespace docs
