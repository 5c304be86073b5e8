#include "sim/rack/Cards.h"

#include <algorithm>
#include <cmath>

namespace sim {

SERVO_CARD::SERVO_CARD(int address, REPORT report)
    : CARD(type::kServo, address, std::move(report)) {
}

void SERVO_CARD::Advance(TIME now) {
  const double seconds = m_now ? std::chrono::duration<double>(now - *m_now).count() : 0;
  m_now = now;
  for (int i = 0; i < kServos; ++i) {
    SERVO& servo = m_servos[static_cast<std::size_t>(i)];
    if (servo.position == servo.target)
      continue;
    const double way = servo.target - servo.position;
    const double step = m_speed == 0 ? std::abs(way) : m_speed * seconds;
    if (step < std::abs(way)) {
      servo.position += std::copysign(step, way);
      continue;
    }
    servo.position = servo.target;
    Report("servo " + std::to_string(i) + " reached " + ToHex(servo.target));
  }
}

bool SERVO_CARD::Moving() const {
  return std::any_of(m_servos.begin(), m_servos.end(),
                     [](const SERVO& servo) { return servo.position != servo.target; });
}

int SERVO_CARD::Value(int servo) const {
  return servo >= 0 && servo < kServos ? m_servos[static_cast<std::size_t>(servo)].target : -1;
}

double SERVO_CARD::Position(int servo) const {
  return servo >= 0 && servo < kServos ? m_servos[static_cast<std::size_t>(servo)].position : -1;
}

double SERVO_CARD::Pulse(int servo) const {
  if (servo < 0 || servo >= kServos)
    return -1;
  const double endA = Parameter("endA", servo);
  const double endB = Parameter("endB", servo);
  return endA + (endB - endA) * Position(servo) / 255.0;
}

RESULT SERVO_CARD::SetSpeed(int unitsPerSecond) {
  constexpr int kFastest = 100000;
  if (unitsPerSecond < 0 || unitsPerSecond > kFastest)
    return RESULT::Error("a servo's speed is 0 (at once) to 100000 steps a second");
  m_speed = unitsPerSecond;
  return RESULT::Good();
}

void SERVO_CARD::MoveTo(int servo, std::uint8_t target) {
  Working("position", servo) = target;
  SERVO& moved = m_servos.at(static_cast<std::size_t>(servo));
  if (moved.target == target)
    return;
  moved.target = target;
  Report("servo " + std::to_string(servo) + " = " + ToHex(target));
}

bool SERVO_CARD::Output(std::span<const std::uint8_t> data) {
  if (data.size() != m_servos.size())
    return false;
  for (int i = 0; i < kServos; ++i)
    MoveTo(i, data[static_cast<std::size_t>(i)]);
  return true;
}

void SERVO_CARD::BeforeStore() {
  for (int i = 0; i < kServos; ++i)
    Working("position", i) = m_servos[static_cast<std::size_t>(i)].target;
}

void SERVO_CARD::OnRecall() {
  for (int i = 0; i < kServos; ++i)
    MoveTo(i, static_cast<std::uint8_t>(StoredParameter("position", i)));
}

void SERVO_CARD::OnReboot() {
  OnRecall();
}

void SERVO_CARD::ShowState(std::vector<FIELD>& fields) const {
  Bytes targets;
  std::vector<double> positions;
  std::vector<double> pulses;
  for (int i = 0; i < kServos; ++i) {
    targets.push_back(static_cast<std::uint8_t>(Value(i)));
    positions.push_back(Position(i));
    pulses.push_back(Pulse(i));
  }
  fields.push_back({"targets", targets});
  fields.push_back({"positions", positions});
  fields.push_back({"pulses", pulses});
  fields.push_back({"speed", m_speed});
}

}  // namespace sim
