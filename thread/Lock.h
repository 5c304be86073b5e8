#pragma once

#include "thread/ScheduleNoise.h"

#include <mutex>

namespace vorn {

// CLock: a std::mutex, with schedule noise around it in a build that has that. For the daemon's own
// data; CMutexClass is the framework's.

#ifdef VORN_SCHEDULE_NOISE

class CLock {
 public:
  void lock() {
    MakeScheduleNoise();
    m_mutex.lock();
  }
  void unlock() {
    m_mutex.unlock();
    MakeScheduleNoise();
  }

 private:
  std::mutex m_mutex;
};

#else

using CLock = std::mutex;

#endif

}  // namespace vorn
