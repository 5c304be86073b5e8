#include "sim/line/Trace.h"

#include "sim/rack/Describe.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <sstream>

namespace sim {

namespace {

std::string_view NextWord(std::string_view& text) {
  const std::size_t begin = std::min(text.find_first_not_of(" \t\r"), text.size());
  const std::size_t end = std::min(text.find_first_of(" \t\r", begin), text.size());
  const std::string_view word = text.substr(begin, end - begin);
  text.remove_prefix(end);
  return word;
}

/// An empty error text: the entry is good.
std::string ParseLine(std::string_view line, TRACE_ENTRY& entry) {
  constexpr double kMostSeconds = 1e9;
  const std::string_view time = NextWord(line);
  double seconds = 0;
  const auto [end, error] = std::from_chars(time.data(), time.data() + time.size(), seconds);
  if (error != std::errc() || end != time.data() + time.size() || !(seconds >= 0) ||
      seconds > kMostSeconds) {
    return "expected seconds, found '" + std::string(time) + "'";
  }
  entry.when = std::chrono::microseconds(std::llround(seconds * 1e6));
  const std::string_view direction = NextWord(line);
  if (direction != ">" && direction != "<") {
    return "expected > or <, found '" + std::string(direction) + "'";
  }
  entry.direction = direction == ">" ? DIRECTION::kRequest : DIRECTION::kAnswer;
  while (!line.empty() && line.back() == '\r') {
    line.remove_suffix(1);
  }
  const std::optional<Bytes> bytes = FromHex(line);
  if (!bytes || bytes->empty()) {
    return "expected bytes in hexadecimal, found '" + std::string(line) + "'";
  }
  entry.bytes = *bytes;
  return {};
}

}  // namespace

std::string TraceLine(const TRACE_ENTRY& entry) {
  constexpr std::size_t kColumn = 62;
  const bool request = entry.direction == DIRECTION::kRequest;
  char time[32];
  std::snprintf(time, sizeof time, "%12.6f", static_cast<double>(entry.when.count()) / 1e6);
  std::string line = std::string(time) + (request ? " > " : " < ") + ToHex(entry.bytes);
  line.resize(std::max(kColumn, line.size()), ' ');
  return line + " ; " + (request ? DescribeRequest(entry.bytes) : DescribeAnswer(entry.bytes));
}

std::string TraceHeader() {
  return "# seconds, > toward the cards or < from them, bytes (the first is the length) ; "
         "meaning\n";
}

RESULT ParseTrace(const std::string& text, std::vector<TRACE_ENTRY>& entries) {
  std::istringstream lines(text);
  std::string line;
  for (int number = 1; std::getline(lines, line); ++number) {
    line.resize(std::min(line.find(';'), line.size()));
    const std::size_t begin = line.find_first_not_of(" \t\r");
    if (begin == std::string::npos || line[begin] == '#') {
      continue;
    }
    TRACE_ENTRY entry;
    const std::string error = ParseLine(line, entry);
    if (!error.empty()) {
      return RESULT::Error("line " + std::to_string(number) + ": " + error);
    }
    entries.push_back(std::move(entry));
  }
  return RESULT::Good();
}

REPLAY::REPLAY(const std::vector<TRACE_ENTRY>& entries) {
  std::chrono::microseconds last{0};
  for (const TRACE_ENTRY& entry : entries) {
    const bool request = entry.direction == DIRECTION::kRequest;
    // What there was of a request that was dropped unfinished is in the trace, but never answered.
    if (request && entry.bytes.size() == entry.bytes[0] + 1U) {
      m_steps.push_back({entry.bytes, {}});
    } else if (!request &&
               !m_steps.empty()) {  // what came before the first request, nobody asked for
      m_steps.back().reply.push_back(
          {std::max(std::chrono::microseconds(0), entry.when - last), entry.bytes});
    }
    last = entry.when;
  }
}

ADAPTER::REPLY_HOOK REPLAY::Hook() {
  return [this](const REQUEST& request, const std::optional<Bytes>&) { return Next(request); };
}

void REPLAY::SetListener(ADAPTER::LISTENER listener) {
  const std::lock_guard lock(m_mutex);
  m_listener = std::move(listener);
}

bool REPLAY::Complete() const {
  const std::lock_guard lock(m_mutex);
  return m_difference.empty() && m_next == m_steps.size();
}

std::string REPLAY::Difference() const {
  const std::lock_guard lock(m_mutex);
  return m_difference;
}

std::size_t REPLAY::Answered() const {
  const std::lock_guard lock(m_mutex);
  return m_next;
}

std::optional<REPLY> REPLAY::Next(const REQUEST& request) {
  const std::lock_guard lock(m_mutex);
  if (!m_difference.empty()) {
    return REPLY{};
  }
  if (m_next < m_steps.size() && m_steps[m_next].request == request.frame) {
    const REPLY& reply = m_steps[m_next].reply;
    if (++m_next == m_steps.size() && m_listener) {
      m_listener("replay complete: " + std::to_string(m_next) + " requests");
    }
    return reply;
  }
  m_difference = "request " + std::to_string(m_next + 1) + " differs: expected " +
                 (m_next < m_steps.size() ? ToHex(m_steps[m_next].request) : "no more") +
                 ", received " + ToHex(request.frame);
  if (m_listener) {
    m_listener("replay: " + m_difference);
  }
  return REPLY{};
}

}  // namespace sim
