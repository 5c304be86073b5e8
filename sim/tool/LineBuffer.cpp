#include "sim/tool/LineBuffer.h"

#include <utility>

namespace sim {

std::vector<LINE_BUFFER::LINE> LINE_BUFFER::Feed(std::string_view bytes) {
  std::vector<LINE> lines;
  while (!bytes.empty()) {
    const std::size_t end = bytes.find('\n');
    const std::string_view part = bytes.substr(0, end);
    if (!m_skipping && m_partial.size() + part.size() > kMaximumLine) {
      lines.push_back({{}, true});
      m_partial.clear();
      m_skipping = true;
    }
    if (!m_skipping) {
      m_partial += part;
    }
    if (end == std::string_view::npos) {
      break;
    }
    if (!m_skipping) {
      lines.push_back({std::exchange(m_partial, {}), false});
    }
    m_skipping = false;
    bytes.remove_prefix(end + 1);
  }
  return lines;
}

std::vector<LINE_BUFFER::LINE> LINE_BUFFER::Finish() {
  m_skipping = false;
  if (m_partial.empty()) {
    return {};
  }
  return {{std::exchange(m_partial, {}), false}};
}

}  // namespace sim
