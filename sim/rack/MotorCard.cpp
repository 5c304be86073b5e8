#include "sim/rack/Cards.h"

#include <algorithm>
#include <cstdlib>

namespace sim {

MOTOR_CARD::MOTOR_CARD(int address, REPORT report)
    : CARD(type::kMotor, address, std::move(report)) {
}

int MOTOR_CARD::Value(int block) const {
  return block >= 0 && block < static_cast<int>(m_values.size())
             ? m_values[static_cast<std::size_t>(block)]
             : -1;
}

int MOTOR_CARD::Percent(int motor) const {
  if (motor < 0 || motor >= kMotors)
    return 0;
  const std::uint8_t speed = m_values[static_cast<std::size_t>(motor)];
  const int silent = Parameter("silent", motor);
  if (silent > 0) {
    const int wanted = speed < 0x80 ? speed : speed - 0x100;  // two's complement
    return std::abs(wanted) < silent ? 0 : std::max(-100, wanted * 100 / 127);
  }
  const int direction = m_values[kMotors] >> (2 * motor) & 3;
  if (direction == 0 || direction == 3)  // off, or both: braked
    return 0;
  return (direction == 1 ? 1 : -1) * speed * 100 / 255;
}

void MOTOR_CARD::ReportTurning() {
  for (int i = 0; i < kMotors; ++i) {
    int& reported = m_reported[static_cast<std::size_t>(i)];
    if (Percent(i) == reported)
      continue;
    reported = Percent(i);
    Report("motor " + std::to_string(i) + " at " + std::to_string(reported) + "%");
  }
}

bool MOTOR_CARD::Output(std::span<const std::uint8_t> data) {
  if (data.size() != m_values.size())
    return false;
  for (std::size_t i = 0; i < m_values.size(); ++i) {
    if (m_values[i] == data[i])
      continue;
    m_values[i] = data[i];
    Report("block " + std::to_string(i) + " = " + ToHex(data[i]));
  }
  ReportTurning();
  return true;
}

void MOTOR_CARD::OnParameter(const PARAMETER& /*row*/, int /*channel*/) {
  ReportTurning();
}

void MOTOR_CARD::OnReboot() {
  constexpr std::uint8_t kStand[] = {0, 0, 0, 0};
  Output(kStand);
}

void MOTOR_CARD::ShowState(std::vector<FIELD>& fields) const {
  fields.push_back({"blocks", Bytes(m_values.begin(), m_values.end())});
  fields.push_back({"percent", std::vector<int>{Percent(0), Percent(1), Percent(2)}});
}

}  // namespace sim
