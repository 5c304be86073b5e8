#pragma once

#include "vorn/bus/CARD_TABLE.h"

#include <utility>

namespace unit {

/// The cards that the examples speak of, as an identification leaves them.
inline void Identify(CARD_TABLE& cards) {
  constexpr std::pair<std::size_t, CARD_CODE> kRack[] = {
      {0x0, kRcServo},   {0x1, kDcMotor},  {0x3, kDigitalInput},    {0x5, kDigitalOutput},
      {0x8, kKeyMatrix}, {0x9, kIrRemote}, {0xE, kAlphanumericLcd}, {0xF, kAnalogueInput},
  };
  for (const auto& [address, code] : kRack) {
    cards.With(address, [code = code](PERIFCARD& card) {
      const CARD_TYPE& type = FindCardType(code);
      card.typeCode = code;
      card.stateWord = type.state;
      for (std::size_t i = 0; i < type.presetValues; ++i) {
        card.values.at(i) = type.preset;
      }
    });
  }
}

}  // namespace unit
