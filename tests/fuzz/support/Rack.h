#pragma once

#include "vorn/bus/CardTable.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace vorn {

namespace fuzz {

/// A card of each type, two unusable ones, and an unknown one. Its order is turned by an input.
inline constexpr std::array<std::uint8_t, 16> kRack = {5, 6,  0,  4, 255, 3, 7, 8,
                                                       8, 10, 42, 4, 3,   5, 9, 7};

inline std::uint8_t CardAt(std::size_t address, std::uint8_t turn) {
  return kRack.at((address + turn) % kRack.size());
}

/// Fills the table as identification does, for what reads it.
inline void Fill(CARD_TABLE& cards, std::uint8_t turn) {
  for (std::size_t address = 0; address < bus::kAddresses; ++address) {
    cards.With(address, [&](PERIFCARD& card) {
      const CARD_TYPE& type = FindCardType(CardAt(address, turn));
      card.typeCode = CardAt(address, turn);
      card.stateWord = type.state;
      card.SetName(type.name);
      for (std::size_t i = 0; i < type.presetValues; ++i) {
        card.values.at(i) = type.preset;
      }
    });
  }
}

}  // namespace fuzz

}  // namespace vorn
