#include "thread/MutexClass.h"

#include "thread/ScheduleNoise.h"

namespace vorn {

CMutexClass::CMutexClass() {
  pthread_mutex_init(&m_mutex, nullptr);
}

CMutexClass::~CMutexClass() {
  Lock();
  Unlock();
  pthread_mutex_destroy(&m_mutex);
}

void CMutexClass::Lock() {
  const pthread_t self = pthread_self();
  if (m_owner.load(std::memory_order_relaxed) == self) {
    return;
  }
  MakeScheduleNoise();
  pthread_mutex_lock(&m_mutex);
  m_owner.store(self, std::memory_order_relaxed);
}

void CMutexClass::Unlock() {
  if (m_owner.load(std::memory_order_relaxed) != pthread_self()) {
    return;
  }
  m_owner.store(0, std::memory_order_relaxed);
  pthread_mutex_unlock(&m_mutex);
  MakeScheduleNoise();
}

}  // namespace vorn
