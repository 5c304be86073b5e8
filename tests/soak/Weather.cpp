#include "tests/soak/Weather.h"

namespace soak {

void WEATHER::Storm() {
  const std::lock_guard lock(m_mutex);
  if (m_calmSince) {
    m_lostInCalm += LostLinks() - m_lostBefore;
  }
  m_calmSince.reset();
}

void WEATHER::Calm() {
  const std::lock_guard lock(m_mutex);
  m_lostBefore = LostLinks();
  m_calmSince = std::chrono::steady_clock::now();
}

bool WEATHER::IsCalmSince(TIME time) const {
  const std::lock_guard lock(m_mutex);
  return m_calmSince && *m_calmSince <= time && LostLinks() == m_lostBefore;
}

int WEATHER::LostInCalm() const {
  const std::lock_guard lock(m_mutex);
  return m_lostInCalm;
}

int WEATHER::LostLinks() const {
  return static_cast<int>(m_log.LinesWith("comm timeout").size());
}

}  // namespace soak
