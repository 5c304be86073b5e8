#include "tests/support/sim/Rack.h"

#include <utility>
#include <variant>
#include <vector>

namespace support {

namespace {

template <class ACTION>
sim::RESULT Operate(sim::RACK& rack, int address, ACTION action) {
  sim::RESULT result = sim::RESULT::Error("no card at address " + sim::AddressText(address));
  rack.WithCard(address, [&](sim::CARD& card) { result = action(card); });
  return result;
}

}  // namespace

void RACK::PopulateDefault() {
  using namespace sim;  // NOLINT(google-build-using-namespace): its words, in a table of them
  constexpr std::pair<int, std::uint8_t> kPlaces[] = {
      {0x0, type::kServo},         {0x1, type::kMotor},    {0x3, type::kDigitalInput},
      {0x5, type::kDigitalOutput}, {0x8, type::kKeys},     {0x9, type::kIr},
      {0xE, type::kLcd},           {0xF, type::kAnalogue},
  };
  for (const auto& [address, code] : kPlaces) {
    Insert(address, code);
  }
}

sim::RESULT RACK::Press(int address, int key) {
  return Operate(*this, address, [=](sim::CARD& card) { return card.Press(key); });
}

sim::RESULT RACK::Release(int address, int key) {
  return Operate(*this, address, [=](sim::CARD& card) { return card.Release(key); });
}

sim::RESULT RACK::Turn(int address, int steps) {
  return Operate(*this, address, [=](sim::CARD& card) { return card.Turn(steps); });
}

sim::RESULT RACK::Set(int address, int channel, int value) {
  return Operate(*this, address, [=](sim::CARD& card) { return card.Set(channel, value); });
}

/// A card shows its blocks before all other bytes.
int RACK::Value(int address, std::size_t block) {
  int value = -1;
  WithCard(address, [&](const sim::CARD& card) {
    for (const sim::FIELD& field : card.Show()) {
      if (const auto* bytes = std::get_if<sim::Bytes>(&field.value)) {
        value = block < bytes->size() ? bytes->at(block) : -1;
        return;
      }
    }
  });
  return value;
}

bool RACK::WaitForValue(int address, std::size_t block, int value, milliseconds limit) {
  return WaitUntil([&] { return Value(address, block) == value; }, limit);
}

bool RACK::WaitForText(int address, std::size_t column, std::size_t row, const std::string& text,
                       milliseconds limit) {
  return WaitUntil(
      [&] {
        const auto rows = Field<std::vector<std::string>>(address, "text");
        return row < rows.size() && column < rows[row].size() &&
               rows[row].compare(column, text.size(), text) == 0;
      },
      limit);
}

}  // namespace support
