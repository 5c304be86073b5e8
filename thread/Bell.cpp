#include "thread/Bell.h"

#include "thread/ScheduleNoise.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

namespace vorn {

namespace {

/// Refused only where there is none, or nobody has cleared it for ages.
void Write(const UNIQUE_FD& event) {
  const std::uint64_t one = 1;
  static_cast<void>(!write(event.Get(), &one, sizeof one));
}

}  // namespace

BELL::BELL() : m_event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
}

void BELL::Ring() {
  MakeScheduleNoise();
  if ((m_state.fetch_and(~static_cast<unsigned>(kResting)) & kResting) != 0) {
    Write(m_event);
  }
}

void BELL::RingThrough() {
  MakeScheduleNoise();
  if (m_state.exchange(kAwake) != kAwake) {
    Write(m_event);
  }
}

void BELL::Arm(STATE state) {
  m_state.exchange(state);
  MakeScheduleNoise();
}

void BELL::Disarm() {
  MakeScheduleNoise();
  m_state.exchange(kAwake);
}

void BELL::Clear() {
  std::uint64_t rings = 0;
  static_cast<void>(!read(m_event.Get(), &rings, sizeof rings));
}

}  // namespace vorn
