#include "thread/Bell.h"

#include "thread/ScheduleNoise.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

namespace vorn {

BELL::BELL() : m_event(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
}

void BELL::Ring() {
  MakeScheduleNoise();
  if ((m_state.fetch_and(~static_cast<unsigned>(kResting)) & kResting) != 0) {
    const std::uint64_t one = 1;
    // cppcheck-suppress ignoredReturnErrorCode ; refused only where nobody has cleared it for ages
    static_cast<void>(!write(m_event.Get(), &one, sizeof one));
  }
}

void BELL::RingThrough() {
  MakeScheduleNoise();
  if (m_state.exchange(kAwake) != kAwake) {
    const std::uint64_t one = 1;
    static_cast<void>(!write(m_event.Get(), &one, sizeof one));
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
