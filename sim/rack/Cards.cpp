#include "sim/rack/Cards.h"

namespace sim {

UNKNOWN_CARD::UNKNOWN_CARD(std::uint8_t typeCode, int address, REPORT report)
    : CARD(typeCode, address, std::move(report)) {
}

void UNKNOWN_CARD::ShowState(std::vector<FIELD>& /*fields*/) const {
}

namespace {

template <class CARD_CLASS>
std::unique_ptr<CARD> Make(int address, CARD::REPORT report) {
  return std::make_unique<CARD_CLASS>(address, std::move(report));
}

struct FACTORY {
  std::uint8_t typeCode;
  std::unique_ptr<CARD> (*make)(int address, CARD::REPORT report);
};
constexpr FACTORY kFactories[] = {
    {type::kDigitalOutput, Make<DIGITAL_OUTPUT_CARD>},
    {type::kDigitalInput, Make<DIGITAL_INPUT_CARD>},
    {type::kServo, Make<SERVO_CARD>},
    {type::kMotor, Make<MOTOR_CARD>},
    {type::kAnalogue, Make<ANALOGUE_CARD>},
    {type::kKeys, Make<KEYS_CARD>},
    {type::kLcd, Make<LCD_CARD>},
    {type::kIr, Make<IR_CARD>},
};

}  // namespace

std::unique_ptr<CARD> MakeCard(std::uint8_t typeCode, int address, CARD::REPORT report) {
  for (const FACTORY& row : kFactories) {
    if (row.typeCode == typeCode)
      return row.make(address, std::move(report));
  }
  return std::make_unique<UNKNOWN_CARD>(typeCode, address, std::move(report));
}

}  // namespace sim
