#include "tests/docs/Markdown.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>

namespace vorn {

namespace docs {

namespace {

const std::filesystem::path kRoot = VORN_SOURCE_DIR;

std::string Trim(const std::string& text) {
  const std::size_t begin = text.find_first_not_of(' ');
  return begin == std::string::npos ? ""
                                    : text.substr(begin, text.find_last_not_of(' ') - begin + 1);
}

bool StartsWith(const std::string& text, const std::string& start) {
  return text.compare(0, start.size(), start) == 0;
}

/// The position behind the literal that begins with the quote at `begin`.
std::size_t EndOfLiteral(const std::string& source, std::size_t begin) {
  const char quote = source[begin];
  std::size_t at = begin + 1;
  while (at < source.size() && source[at] != quote) {
    at += source[at] == '\\' ? 2 : 1;
  }
  return at + 1;
}

bool IsDigitSeparator(const std::string& source, std::size_t at) {
  return at > 0 && std::isxdigit(static_cast<unsigned char>(source[at - 1])) != 0;
}

}  // namespace

std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream file(kRoot / path, std::ios::binary);
  EXPECT_TRUE(file) << path << " cannot be read";
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

std::vector<std::filesystem::path> Documents() {
  std::vector<std::filesystem::path> documents;
  for (const std::filesystem::path folder : {".", "docs"}) {
    for (const auto& entry : std::filesystem::directory_iterator(kRoot / folder)) {
      if (entry.path().extension() == ".md") {
        documents.push_back(folder / entry.path().filename());
      }
    }
  }
  return documents;
}

LINES SplitLines(const std::string& text) {
  LINES lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

LINES Section(const std::string& document, const std::string& heading) {
  const LINES lines = SplitLines(document);
  const auto begin = std::find(lines.begin(), lines.end(), heading);
  if (begin == lines.end()) {
    ADD_FAILURE() << "no heading \"" << heading << "\"";
    return {};
  }
  const std::size_t level = heading.find(' ');
  bool fenced = false;
  const auto end = std::find_if(begin + 1, lines.end(), [&](const std::string& line) {
    fenced = fenced != StartsWith(line, "```");
    const std::size_t depth = line.find_first_not_of('#');
    return !fenced && depth != std::string::npos && depth > 0 && depth <= level &&
           line[depth] == ' ';
  });
  return {begin + 1, end};
}

std::vector<ROW> Tables(const LINES& lines) {
  std::vector<ROW> rows;
  std::size_t number = 0;  // of the line in its table: the header and the rule come first
  for (const std::string& line : lines) {
    number = StartsWith(line, "|") ? number + 1 : 0;
    if (number <= 2) {
      continue;
    }
    ROW row;
    std::size_t at = 1;
    for (std::size_t end = 0; (end = line.find('|', at)) != std::string::npos; at = end + 1) {
      row.push_back(Trim(line.substr(at, end - at)));
    }
    rows.push_back(row);
  }
  return rows;
}

std::vector<std::string> CodeSpans(const std::string& text) {
  std::vector<std::string> spans;
  std::size_t at = 0;
  while ((at = text.find('`', at)) != std::string::npos) {
    const std::size_t end = text.find('`', at + 1);
    if (end == std::string::npos) {
      break;
    }
    spans.push_back(text.substr(at + 1, end - at - 1));
    at = end + 1;
  }
  return spans;
}

std::vector<LINES> Blocks(const LINES& lines, const std::string& info) {
  std::vector<LINES> blocks;
  bool inside = false;
  bool wanted = false;
  for (const std::string& line : lines) {
    if (StartsWith(line, "```")) {
      inside = !inside;
      wanted = inside && line == "```" + info;
      if (wanted) {
        blocks.emplace_back();
      }
    } else if (wanted) {
      blocks.back().push_back(line);
    }
  }
  return blocks;
}

std::vector<std::filesystem::path> Sources(const std::string& folder) {
  std::vector<std::filesystem::path> sources;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(kRoot / folder)) {
    const std::string extension = entry.path().extension();
    if (extension == ".cpp" || extension == ".h") {
      sources.push_back(std::filesystem::relative(entry.path(), kRoot));
    }
  }
  EXPECT_FALSE(sources.empty()) << "no source in " << folder;
  return sources;
}

std::vector<std::string> Literals(const std::string& source) {
  std::vector<std::string> literals;
  std::size_t at = 0;
  while (at < source.size()) {
    if (StartsWith(source.substr(at, 2), "//") || StartsWith(source.substr(at, 8), "#include")) {
      at = std::min(source.find('\n', at), source.size());
    } else if (source[at] == '"') {
      const std::size_t end = EndOfLiteral(source, at);
      literals.push_back(source.substr(at + 1, end - at - 2));
      at = end;
    } else if (source[at] == '\'' && !IsDigitSeparator(source, at)) {
      at = EndOfLiteral(source, at);
    } else {
      ++at;
    }
  }
  return literals;
}

std::vector<std::string> Calls(const std::string& source, const std::string& function) {
  std::vector<std::string> calls;
  std::size_t at = 0;
  while ((at = source.find(function + "(", at)) != std::string::npos) {
    const std::size_t begin = at + function.size();
    std::size_t depth = 0;
    at = begin;
    do {
      if (source[at] == '"') {
        at = EndOfLiteral(source, at);
        continue;
      }
      depth += source[at] == '(' ? 1 : 0;
      depth -= source[at] == ')' ? 1 : 0;
      ++at;
    } while (depth > 0 && at < source.size());
    calls.push_back(source.substr(begin, at - begin));
  }
  return calls;
}

}  // namespace docs

}  // namespace vorn
