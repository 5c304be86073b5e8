#include "tests/soak/FloodLines.h"

#include "tests/support/Text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>

namespace soak {

namespace {

constexpr std::string_view kWord = "flood ";
constexpr std::size_t kDigits = 10;
const std::string kFilling = ' ' + std::string(82, '.');

/// 0 for what is no whole line of a flood.
std::uint64_t NumberOf(std::string_view line) {
  std::uint64_t number = 0;
  if (!line.starts_with(kWord) || !line.ends_with(kFilling) ||
      line.size() != kWord.size() + kDigits + kFilling.size()) {
    return 0;
  }
  const char* const begin = line.data() + kWord.size();
  const auto [stop, error] = std::from_chars(begin, begin + kDigits, number);
  return error == std::errc() && stop == begin + kDigits ? number : 0;
}

}  // namespace

std::string FloodLine(std::uint64_t number) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "flood %010llu", static_cast<unsigned long long>(number));
  return text.data() + kFilling;
}

void FLOOD_LINES::Restart() {
  const std::lock_guard lock(m_mutex);
  m_unfinished.clear();
}

void FLOOD_LINES::Take(std::string_view bytes) {
  const std::lock_guard lock(m_mutex);
  m_unfinished += bytes;
  std::erase(m_unfinished, '\r');  // those of the separators, and the one behind each message
  std::size_t begin = 0;
  for (std::size_t end = 0; (end = m_unfinished.find('\n', begin)) != std::string::npos;
       begin = end + 1) {
    TakeLine(m_unfinished.substr(begin, end - begin));
  }
  m_unfinished.erase(0, begin);
}

/// Under the lock.
void FLOOD_LINES::TakeLine(const std::string& line) {
  const std::uint64_t number =
      line.starts_with(m_prefix) ? NumberOf(std::string_view(line).substr(m_prefix.size())) : 0;
  std::string fault;
  if (number > m_latest) {
    ++m_received;
    m_latest = number;
  } else if (number > 0) {
    fault = "the line '" + line + "' came after number " + std::to_string(m_latest);
  } else if (!m_isKnown(line)) {
    fault = "a line was torn: '" + support::Visible(line) + "'";
  }
  if (m_fault.empty()) {
    m_fault = fault;
  }
}

std::uint64_t FLOOD_LINES::Received() const {
  const std::lock_guard lock(m_mutex);
  return m_received;
}

std::string FLOOD_LINES::Fault() const {
  const std::lock_guard lock(m_mutex);
  return m_fault;
}

}  // namespace soak
