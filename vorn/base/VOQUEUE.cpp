#include "vorn/base/VOQUEUE.h"

#include "thread/ScheduleNoise.h"

#include <utility>

void VOQUEUE::ToQueue(QList message) {
  MakeMeetingNoise();
  const CScopedLock lock(m_mutex);
  m_messages.push_back(std::move(message));
}

bool VOQUEUE::IsEmpty() {
  return Size() == 0;
}

QList VOQUEUE::DeQueue() {
  if (IsEmpty()) {
    return {};
  }
  MakeMeetingNoise();  // between the two critical sections
  const CScopedLock lock(m_mutex);
  QList front = std::move(m_messages.front());
  m_messages.pop_front();
  return front;
}

std::size_t VOQUEUE::Size() {
  const CScopedLock lock(m_mutex);
  return m_messages.size();
}
