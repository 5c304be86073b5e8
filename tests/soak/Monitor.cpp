#include "tests/soak/Monitor.h"

#include "tests/soak/IoLines.h"

#include <stdexcept>

namespace soak {

MONITOR::MONITOR(int port, const WEATHER& weather)
    : CLIENT(weather),
      m_port(port),
      m_lines("", [this](const std::string& line) { return Note(line); }) {
}

void MONITOR::Connect() {
  std::string before;
  m_mon.emplace(ConnectTo(m_port, "VORN MON interface is ready\r\n\r", before));
  m_lines.Restart();
  m_lines.Take(before);
}

void MONITOR::Reset() {
  if (m_mon) {
    m_mon->Reset();
  }
}

std::string MONITOR::Exchange() {
  m_lines.Take(m_mon->Read(kMuch, kAwayStep));
  if (m_mon->IsEnded()) {
    throw std::runtime_error("MON was closed");
  }
  return {};
}

/// False for a line that nobody can have sent.
bool MONITOR::Note(const std::string& line) {
  if (!IsIoLine(line)) {
    return line == "VORN MON interface is ready";
  }
  const std::lock_guard lock(m_mutex);
  m_lastSeen[line] = ++m_seen;
  m_changed.notify_all();
  return true;
}

std::uint64_t MONITOR::Seen() const {
  const std::lock_guard lock(m_mutex);
  return m_seen;
}

bool MONITOR::WaitForLine(const std::string& line, std::uint64_t since,
                          std::chrono::milliseconds limit) {
  std::unique_lock lock(m_mutex);
  return m_changed.wait_for(lock, limit, [&] {
    const auto found = m_lastSeen.find(line);
    return found != m_lastSeen.end() && found->second > since;
  });
}

}  // namespace soak
