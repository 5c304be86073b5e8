#pragma once

#include "vorn/bus/CardTable.h"

#include <algorithm>
#include <array>

namespace vorn {

namespace unit {

/// The cards that the examples speak of, as an identification leaves them; a card of each type that
/// they do not speak of is at the next free address.
inline void Identify(CARD_TABLE& cards) {
  std::array<std::uint8_t, bus::kAddresses> rack = {
      kRcServo,
      kDcMotor,
      0,
      kDigitalInput,
      0,
      kDigitalOutput,
      0,
      0,
      kKeyMatrix,
      kIrRemote,
      0,
      0,
      0,
      0,
      kAlphanumericLcd,
      kAnalogueInput,
  };
  for (const CARD_TYPE& type : kCardTypes) {
    if (type.state != kNoUsableCard && std::count(rack.begin(), rack.end(), type.code) == 0) {
      *std::find(rack.begin(), rack.end(), kEmptySlot) = type.code;
    }
  }
  for (std::size_t address = 0; address < rack.size(); ++address) {
    cards.With(address, [&](PERIFCARD& card) {
      const CARD_TYPE& type = FindCardType(rack.at(address));
      card.typeCode = type.code;
      card.stateWord = type.state;
      std::fill_n(card.values.begin(), type.presetValues, type.preset);
    });
  }
}

}  // namespace unit

}  // namespace vorn
