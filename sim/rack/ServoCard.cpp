#include "sim/rack/Card.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>

namespace sim {

namespace {

constexpr int kServos = 6;

/// Six servos that travel to their target at a settable speed. Target 00 is end position A, FF end
/// position B. Parameters endA, endB; position is where they stand (working) and what a reboot or a
/// recall takes them to (stored).
class SERVO_CARD : public CARD {
 public:
  SERVO_CARD(int address, REPORT report) : CARD(type::kServo, address, std::move(report)) {}

  void Advance(TIME now) override;
  bool Moving() const override {
    return std::any_of(m_servos.begin(), m_servos.end(),
                       [](const SERVO& servo) { return servo.position != servo.target; });
  }
  /// Steps per second, 0: at once.
  RESULT SetSpeed(int unitsPerSecond) override;

 protected:
  bool Output(std::span<const std::uint8_t> data) override {
    for (int i = 0; i < kServos; ++i) {
      MoveTo(i, data[static_cast<std::size_t>(i)]);
    }
    return true;
  }
  void BeforeStore() override {
    for (int i = 0; i < kServos; ++i) {
      Working("position", i) = m_servos.at(static_cast<std::size_t>(i)).target;
    }
  }
  void OnRecall() override {
    for (int i = 0; i < kServos; ++i) {
      MoveTo(i, static_cast<std::uint8_t>(StoredParameter("position", i)));
    }
  }
  void OnReboot() override { OnRecall(); }
  void ShowState(std::vector<FIELD>& fields) const override;

 private:
  struct SERVO {
    std::uint8_t target = 0x80;
    double position = 0x80;  // on its way, 0 to 255
  };

  void MoveTo(int servo, std::uint8_t target);

  /// Steps of the 256 per second: end to end in half a second, as a hobby servo does.
  static constexpr int kDefaultSpeed = 512;

  std::array<SERVO, kServos> m_servos;
  int m_speed = kDefaultSpeed;
  std::optional<TIME> m_now;  // of the last Advance
};

void SERVO_CARD::Advance(TIME now) {
  const double seconds = m_now ? std::chrono::duration<double>(now - *m_now).count() : 0;
  m_now = now;
  for (int i = 0; i < kServos; ++i) {
    SERVO& servo = m_servos.at(static_cast<std::size_t>(i));
    if (servo.position == servo.target) {
      continue;
    }
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

RESULT SERVO_CARD::SetSpeed(int unitsPerSecond) {
  constexpr int kFastest = 100000;
  if (unitsPerSecond < 0 || unitsPerSecond > kFastest) {
    return RESULT::Error("a servo's speed is 0 (at once) to 100000 steps a second");
  }
  m_speed = unitsPerSecond;
  return RESULT::Good();
}

void SERVO_CARD::MoveTo(int servo, std::uint8_t target) {
  Working("position", servo) = target;
  SERVO& moved = m_servos.at(static_cast<std::size_t>(servo));
  if (moved.target == target) {
    return;
  }
  moved.target = target;
  Report("servo " + std::to_string(servo) + " = " + ToHex(target));
}

void SERVO_CARD::ShowState(std::vector<FIELD>& fields) const {
  Bytes targets;
  FIELD positions{"positions", {}, FIELD_KIND::kMark};
  std::vector<double> at;
  std::vector<double> pulses;  // what the shafts are driven to, between their end positions
  for (int i = 0; i < kServos; ++i) {
    const SERVO& servo = m_servos.at(static_cast<std::size_t>(i));
    const double endA = Parameter("endA", i);
    const double endB = Parameter("endB", i);
    targets.push_back(servo.target);
    at.push_back(servo.position);
    pulses.push_back(endA + (endB - endA) * servo.position / 255.0);
    positions.labels.push_back(ToHex(servo.target));
  }
  positions.value = at;
  fields.push_back({"targets", targets});
  fields.push_back(positions);
  fields.push_back({"pulses", pulses});
  fields.push_back({"speed", m_speed});
}

}  // namespace

std::unique_ptr<CARD> MakeServo(int address, REPORT report) {
  return std::make_unique<SERVO_CARD>(address, std::move(report));
}

}  // namespace sim
