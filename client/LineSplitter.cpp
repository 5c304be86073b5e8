#include "client/LineSplitter.h"

#include <algorithm>
#include <utility>

namespace client {

namespace {

bool IsLineEnd(char character) {
  return character == '\r' || character == '\n';
}

}  // namespace

LINE_SPLITTER::LINE_SPLITTER(std::vector<std::string> separators)
    : m_separators(std::move(separators)) {
  std::erase_if(m_separators, [](const std::string& separator) { return separator.empty(); });
  if (m_separators.empty()) {
    m_separators.emplace_back("\n");
  }
  std::sort(m_separators.begin(), m_separators.end(),
            [](const std::string& a, const std::string& b) { return a.size() > b.size(); });
}

std::vector<LINE_SPLITTER::LINE> LINE_SPLITTER::Feed(std::string_view bytes) {
  std::vector<LINE> lines;
  m_unread.append(bytes);
  std::size_t at = 0;
  while (at < m_unread.size()) {
    const FOUND found = FindAt(at);
    if (found.size > 0) {
      EndLine(lines);  // at once, though the separator may turn out to be a longer one
    }
    if (found.mayGrow) {
      break;
    }
    if (found.size > 0) {
      at += found.size;
    } else {
      Keep(m_unread[at++]);
    }
  }
  m_unread.erase(0, at);
  return lines;
}

LINE_SPLITTER::FOUND LINE_SPLITTER::FindAt(std::size_t at) const {
  const std::string_view rest = std::string_view(m_unread).substr(at);
  FOUND found;
  for (const std::string& separator : m_separators) {  // the longer ones first
    if (rest.starts_with(separator)) {
      found.size = separator.size();
      break;
    }
    found.mayGrow = found.mayGrow || separator.starts_with(rest);
  }
  return found;
}

void LINE_SPLITTER::Keep(char character) {
  if (m_line.text.empty() && IsLineEnd(character)) {
    return;
  }
  if (m_line.text.size() < kLongestLine) {
    m_line.text += character;
  } else if (!IsLineEnd(character)) {
    m_line.isCut = true;
  }
}

void LINE_SPLITTER::EndLine(std::vector<LINE>& lines) {
  while (!m_line.text.empty() && IsLineEnd(m_line.text.back())) {
    m_line.text.pop_back();
  }
  if (!m_line.text.empty()) {
    lines.push_back(std::move(m_line));
  }
  m_line = LINE{};
}

void LINE_SPLITTER::Clear() {
  m_unread.clear();
  m_line = LINE{};
}

}  // namespace client
