#include "sim/rack/Card.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>

namespace sim {

namespace {

constexpr int kMotors = 3;

/// Three motors. Data bytes 0 to 2 are speeds, byte 3 is the control byte. With a silent range of 1
/// or more a speed is signed (00 stands, 01 to 7F forward, 80 to FF backward) and speeds inside the
/// range do not turn the motor. With a silent range of 0 the channel is in manual mode: the speed
/// is unsigned and bits 2p and 2p + 1 of the control byte turn motor p forward and backward.
class MOTOR_CARD : public CARD {
 public:
  MOTOR_CARD(int address, REPORT report) : CARD(type::kMotor, address, std::move(report)) {}

 protected:
  bool Output(std::span<const std::uint8_t> data) override;
  void OnParameter(const PARAMETER& /*row*/, int /*channel*/) override { ReportTurning(); }
  void OnReboot() override {
    constexpr std::uint8_t kStand[] = {0, 0, 0, 0};
    Output(kStand);
  }
  void ShowState(std::vector<FIELD>& fields) const override;

 private:
  /// Of full speed, negative backward.
  int Percent(int motor) const;
  void ReportTurning();

  std::array<std::uint8_t, 4> m_values{};
  std::array<int, kMotors> m_reported{};  // percent, so that only changes are reported
};

int MOTOR_CARD::Percent(int motor) const {
  const std::uint8_t speed = m_values.at(static_cast<std::size_t>(motor));
  const int silent = Parameter("silent", motor);
  if (silent > 0) {
    const int wanted = speed < 0x80 ? speed : speed - 0x100;  // two's complement
    return std::abs(wanted) < silent ? 0 : std::max(-100, wanted * 100 / 127);
  }
  const int direction = m_values[kMotors] >> (2 * motor) & 3;
  if (direction == 0 || direction == 3) {  // off, or both: braked
    return 0;
  }
  return (direction == 1 ? 1 : -1) * speed * 100 / 255;
}

void MOTOR_CARD::ReportTurning() {
  for (int i = 0; i < kMotors; ++i) {
    int& reported = m_reported.at(static_cast<std::size_t>(i));
    if (Percent(i) == reported) {
      continue;
    }
    reported = Percent(i);
    Report("motor " + std::to_string(i) + " at " + std::to_string(reported) + "%");
  }
}

bool MOTOR_CARD::Output(std::span<const std::uint8_t> data) {
  for (std::size_t i = 0; i < m_values.size(); ++i) {
    if (m_values.at(i) == data[i]) {
      continue;
    }
    m_values.at(i) = data[i];
    Report("block " + std::to_string(i) + " = " + ToHex(data[i]));
  }
  ReportTurning();
  return true;
}

void MOTOR_CARD::ShowState(std::vector<FIELD>& fields) const {
  std::vector<int> percent;
  std::vector<std::string> labels;
  for (int i = 0; i < kMotors; ++i) {
    char label[32];
    std::snprintf(label, sizeof label, "%+4d%%", Percent(i));
    percent.push_back(Percent(i));
    labels.emplace_back(label);
  }
  fields.push_back({"blocks", Bytes(m_values.begin(), m_values.end())});
  fields.push_back({"percent", percent, FIELD_KIND::kMark, {}, 0, labels, -100, 100});
}

}  // namespace

std::unique_ptr<CARD> MakeMotor(int address, REPORT report) {
  return std::make_unique<MOTOR_CARD>(address, std::move(report));
}

}  // namespace sim
