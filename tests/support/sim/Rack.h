#pragma once

#include "sim/rack/Rack.h"
#include "tests/support/Wait.h"

#include <string>

namespace support {

/// The simulated rack with what tests do to it and wait for at it. Any thread, as the rack itself.
class RACK : public sim::RACK {
 public:
  using sim::RACK::RACK;

  /// The rack of the examples in the daemon's help: servo 0, motor 1, digital input 3, digital
  /// output 5, keys 8, IR 9, LCD E, analogue F.
  void PopulateDefault();

  /// An operator's actions, as CARD has them; an error for an empty slot.
  sim::RESULT Press(int address, int key);
  sim::RESULT Release(int address, int key);
  sim::RESULT Turn(int address, int steps);
  sim::RESULT Set(int address, int channel, int value);

  /// What the card there shows under that name; VALUE() where it shows nothing of that name and
  /// type.
  template <class VALUE>
  VALUE Field(int address, const std::string& name) {
    VALUE value{};
    WithCard(address, [&](const sim::CARD& card) {
      for (const sim::FIELD& field : card.Show()) {
        const auto* found = std::get_if<VALUE>(&field.value);
        value = field.name == name && found != nullptr ? *found : value;
      }
    });
    return value;
  }

  /// The byte of a block or channel as the bus knows it: what was last sent to an output, what an
  /// input would answer. -1 where there is none.
  int Value(int address, std::size_t block);

  bool WaitForValue(int address, std::size_t block, int value, milliseconds limit = kLimit);

  /// A row of the display there has the text at the column.
  bool WaitForText(int address, std::size_t column, std::size_t row, const std::string& text,
                   milliseconds limit = kLimit);
};

}  // namespace support
