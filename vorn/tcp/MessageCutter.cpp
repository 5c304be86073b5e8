#include "vorn/tcp/MessageCutter.h"

#include <utility>

namespace vorn {

namespace {

constexpr std::size_t kReceiveLimit = 255;
constexpr std::chrono::milliseconds kStream{200};

}  // namespace

std::size_t MESSAGE_CUTTER::Room() const {
  return kReceiveLimit - m_rest.size();
}

std::string MESSAGE_CUTTER::Take(const std::string& bytes, bool isText, TIME now) {
  if (m_streams && now >= m_streamsUntil) {
    m_streamsUntil = now + kStream;  // nobody has looked meanwhile
  }
  m_rest += bytes;
  const std::size_t length = End(isText, now);
  std::string message = m_rest.substr(0, length);
  m_rest.erase(0, length);
  return message;
}

/// The separators are found from the front, as lines are cut.
std::size_t MESSAGE_CUTTER::End(bool isText, TIME now) {
  if (!isText || m_separator.empty()) {
    return m_rest.size();
  }
  std::size_t end = 0;
  for (std::size_t at = m_rest.find(m_separator); at != std::string::npos;
       at = m_rest.find(m_separator, end)) {
    end = at + m_separator.size();
  }
  if (m_rest.size() == kReceiveLimit) {
    m_streams = true;
    m_streamsUntil = now + kStream;
    return end > 0 ? end : m_rest.size();
  }
  return m_streams && end < m_rest.size() ? 0 : m_rest.size();
}

std::string MESSAGE_CUTTER::TakeLate(TIME now) {
  if (m_streams && now < m_streamsUntil) {
    return {};
  }
  m_streams = false;
  return TakeRest();
}

std::string MESSAGE_CUTTER::TakeRest() {
  return std::exchange(m_rest, {});
}

void MESSAGE_CUTTER::Clear() {
  m_rest.clear();
  m_streams = false;
}

}  // namespace vorn
