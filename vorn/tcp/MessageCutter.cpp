#include "vorn/tcp/MessageCutter.h"

#include <algorithm>
#include <utility>

namespace vorn {

namespace {

constexpr std::size_t kReceiveLimit = 255;
/// Counted in passes, of at least the least.
constexpr std::int32_t kStreamUs = 200'000;
constexpr std::int32_t kLeastPassUs = 100;

}  // namespace

std::size_t MESSAGE_CUTTER::Room() const {
  return kReceiveLimit - m_rest.size();
}

std::string MESSAGE_CUTTER::Take(const std::string& bytes, bool isText, std::int32_t passUs) {
  m_rest += bytes;
  const std::size_t length = End(isText, passUs);
  std::string message = m_rest.substr(0, length);
  m_rest.erase(0, length);
  return message;
}

/// The separators are found from the front, as lines are cut.
std::size_t MESSAGE_CUTTER::End(bool isText, std::int32_t passUs) {
  if (!isText || m_separator.empty()) {
    return m_rest.size();
  }
  std::size_t end = 0;
  for (std::size_t at = m_rest.find(m_separator); at != std::string::npos;
       at = m_rest.find(m_separator, end)) {
    end = at + m_separator.size();
  }
  if (m_rest.size() == kReceiveLimit) {
    m_streamPasses = kStreamUs / std::max(kLeastPassUs, passUs);
    return end > 0 ? end : m_rest.size();
  }
  return m_streamPasses > 0 && end < m_rest.size() ? 0 : m_rest.size();
}

std::string MESSAGE_CUTTER::TakeLate() {
  if (m_streamPasses > 0) {
    --m_streamPasses;
  }
  return m_streamPasses == 0 ? TakeRest() : std::string();
}

std::string MESSAGE_CUTTER::TakeRest() {
  return std::exchange(m_rest, {});
}

void MESSAGE_CUTTER::Clear() {
  m_rest.clear();
  m_streamPasses = 0;
}

}  // namespace vorn
