#include "client/Delivery.h"

#include <algorithm>

namespace client {

DELIVERY::NUMBER DELIVERY::Sent(std::string_view line) {
  m_lines.push_back({++m_lastSent, std::string(line), false});
  return m_lastSent;
}

bool DELIVERY::Copied(std::string_view line) {
  const auto copy = std::find_if(m_lines.begin(), m_lines.end(), [&](const LINE& sent) {
    return sent.number > m_lastCopied && sent.text == line;
  });
  if (copy == m_lines.end()) {
    return false;
  }
  m_lastCopied = copy->number;
  return true;
}

DELIVERY::NUMBER DELIVERY::Refused(const REFUSAL& refusal) {
  const auto line = std::find_if(m_lines.begin(), m_lines.end(), [&](const LINE& sent) {
    return !sent.isRefused && sent.text == refusal.line;
  });
  if (line == m_lines.end()) {
    return 0;
  }
  line->isRefused = true;
  return line->number;
}

void DELIVERY::Forget(NUMBER before) {
  while (!m_lines.empty() && m_lines.front().number < before) {
    m_lines.pop_front();
  }
}

}  // namespace client
