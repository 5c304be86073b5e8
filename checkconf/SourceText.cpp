#include "checkconf/SourceText.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace vorn::checkconf {

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

/// Of UTF-8: the second and further bytes of a character.
bool IsContinuation(char c) {
  return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
}

}  // namespace

SOURCE_TEXT::SOURCE_TEXT(std::string text) : m_text(std::move(text)) {
  m_lineStarts.push_back(m_text.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0);
  for (std::size_t at = m_text.find('\n'); at != std::string::npos;
       at = m_text.find('\n', at + 1)) {
    m_lineStarts.push_back(at + 1);
  }
}

POSITION SOURCE_TEXT::At(std::size_t offset) const {
  if (!m_positionsKnown) {
    return {};
  }
  const std::size_t at = std::clamp(offset, m_lineStarts.front(), m_text.size());
  const auto after = std::upper_bound(m_lineStarts.begin(), m_lineStarts.end(), at);
  const std::string_view before = std::string_view(m_text).substr(*(after - 1), at - *(after - 1));
  const auto continuations = std::count_if(before.begin(), before.end(), IsContinuation);
  return {static_cast<std::size_t>(after - m_lineStarts.begin()),
          before.size() - static_cast<std::size_t>(continuations) + 1};
}

std::vector<std::size_t> SOURCE_TEXT::AttributeOffsets(std::size_t nameOffset) const {
  std::vector<std::size_t> offsets;
  std::size_t at = m_text.find_first_of(" \t\r\n/>", nameOffset);
  for (;;) {
    at = m_text.find_first_not_of(kBlanks, at);
    if (at == std::string::npos || m_text[at] == '/' || m_text[at] == '>') {
      return offsets;
    }
    offsets.push_back(at);
    const std::size_t quote = m_text.find_first_of("\"'", at);
    if (quote == std::string::npos) {
      return offsets;
    }
    const std::size_t end = m_text.find(m_text[quote], quote + 1);
    if (end == std::string::npos) {
      return offsets;
    }
    at = end + 1;
  }
}

}  // namespace vorn::checkconf
