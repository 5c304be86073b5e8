#include "thread/EventClass.h"

#include "thread/ScheduleNoise.h"

namespace vorn {

CEventClass::CEventClass() {
  pthread_cond_init(&m_condition, nullptr);
  pthread_mutex_init(&m_mutex, nullptr);
}

CEventClass::~CEventClass() {
  pthread_cond_destroy(&m_condition);
  pthread_mutex_destroy(&m_mutex);
}

void CEventClass::Set() {
  MakeScheduleNoise();
  if (m_holder.load(std::memory_order_relaxed) == pthread_self()) {
    ++m_sets;
  } else {
    pthread_mutex_lock(&m_mutex);
    ++m_sets;
    pthread_mutex_unlock(&m_mutex);
  }
  MakeScheduleNoise();
  pthread_cond_signal(&m_condition);
}

bool CEventClass::Wait() {
  return Wait([] { return false; });
}

bool CEventClass::Wait(const std::function<bool()>& alreadyDue) {
  MakeScheduleNoise();
  pthread_mutex_lock(&m_mutex);
  const std::uint64_t before = m_sets;
  // cppcheck-suppress knownConditionTrueFalse ; the wait releases the mutex, and Set counts
  while (m_sets == before && !alreadyDue()) {
    pthread_cond_wait(&m_condition, &m_mutex);
  }
  m_holder.store(pthread_self(), std::memory_order_relaxed);
  return true;
}

void CEventClass::Reset() {
  m_holder.store(0, std::memory_order_relaxed);
  pthread_mutex_unlock(&m_mutex);
  MakeScheduleNoise();
}

}  // namespace vorn
