#include "vorn/bus/PerifCard.h"

#include <cstdio>

namespace vorn {

void PERIFCARD::clearPerifCard() {
  stateWord = kNoUsableCard;
  channelCount = 0;
  typeCode = kEmptySlot;
  SetName(FindCardType(kEmptySlot).name);
  values.fill(0);
  changeFlags.fill(0);
  pollFlag = 0;
  analogueSums.fill(0);
  samplesPerReport = 6;
  pollFrame.clear();
}

void PERIFCARD::SetName(const char* text) {
  std::snprintf(name.data(), name.size(), "%s", text);
}

std::string FormatInputLine(std::size_t address, std::size_t block, std::uint8_t value) {
  std::array<char, 16> line{};
  std::snprintf(line.data(), line.size(), "a%Xb%Xd%02X", static_cast<unsigned int>(address & 0xF),
                static_cast<unsigned int>(block & 0xF), static_cast<unsigned int>(value));
  return line.data();
}

}  // namespace vorn
