#include "tests/docs/Manual.h"

#include "tests/docs/Markdown.h"

#include <array>
#include <utility>

namespace vorn {

namespace docs {

namespace {

std::string Unescaped(std::string text) {
  constexpr std::array<std::pair<const char*, const char*>, 6> kEscapes = {{
      {"\\(aq", "'"},
      {"\\-", "-"},
      {"\\&", ""},
      {"\\fI", ""},
      {"\\fP", ""},
      {"\\e", "\\"},
  }};
  for (const auto& [from, to] : kEscapes) {
    const std::string escape = from;
    for (std::size_t at = text.find(escape); at != std::string::npos; at = text.find(escape, at)) {
      text.replace(at, escape.size(), to);
    }
  }
  return text;
}

bool Takes(std::string& line, const std::string& macro) {
  if (!line.starts_with(macro + " ")) {
    return false;
  }
  line.erase(0, macro.size() + 1);
  return true;
}

/// Splits ".It Cm Name" at its macro; quotes around the head, which keep blanks, go.
void SetHead(MANUAL_ITEM& item, const std::string& line) {
  const std::size_t blank = line.find(' ');
  item.macro = line.substr(0, blank);
  item.head = blank == std::string::npos ? "" : line.substr(blank + 1);
  if (item.head.starts_with('"')) {
    item.head = item.head.substr(1, item.head.size() - 2);
  }
}

}  // namespace

std::string ManualText(const std::string& file) {
  return Unescaped(ReadFile("docs/man/" + file));
}

std::vector<MANUAL_ITEM> ManualItems(const std::string& file) {
  std::vector<MANUAL_ITEM> items;
  std::string section;
  std::string subsection;
  bool inItem = false;
  for (std::string line : SplitLines(ManualText(file))) {
    if (Takes(line, ".Sh")) {
      section = line;
      subsection.clear();
    } else if (Takes(line, ".Ss")) {
      subsection = line;
    } else if (Takes(line, ".It")) {
      items.push_back({section, subsection, {}, {}, {}});
      SetHead(items.back(), line);
      inItem = true;
      continue;
    } else if (inItem && line != ".El") {
      items.back().body += line + "\n";
      continue;
    }
    inItem = false;
  }
  return items;
}

}  // namespace docs

}  // namespace vorn
