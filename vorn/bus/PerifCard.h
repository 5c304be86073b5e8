#pragma once

#include "vorn/base/QList.h"
#include "vorn/bus/CardBus.h"
#include "vorn/bus/CardTypes.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace vorn {

constexpr std::size_t kCardValues = 16;  ///< values, change flags and query bytes in use
constexpr std::size_t kAnalogueChannels = 6;

/// The record of one card slot. Plain data: CARD_TABLE guards it.
struct PERIFCARD {
  /// Empties the record. Deliberately leaves the address, the query bytes and the sample count.
  void clearPerifCard();
  /// Shows `text`, cut to what the name holds.
  void SetName(const char* text);

  std::int32_t stateWord = kNoUsableCard;  ///< a CARD_STATE
  std::int32_t channelCount = 0;
  std::uint8_t address = 0;
  std::uint8_t typeCode = kEmptySlot;  ///< as reported; not all values are CARD_CODEs
  std::array<char, 40> name{};         ///< zero-terminated
  /// Input cards: the last input state per block; output cards: the last output data.
  std::array<std::uint8_t, kCardValues> values{};
  std::array<std::uint8_t, kCardValues> changeFlags{};  ///< set by the last input reply
  /// The card's last 'Q' reply, from the 'Q' itself: address in byte 1, a value read in byte 3.
  std::array<std::uint8_t, kCardValues> queryBytes{};
  std::uint8_t pollFlag = 0;  ///< polled while global polling is on
  std::array<std::int32_t, kAnalogueChannels> analogueSums{};
  std::int32_t sampleCount = 0;       ///< samples in the sums
  std::int32_t samplesPerReport = 6;  ///< at least 1
  /// The body that polls the card. Each identification appends to it, as long as it fits a frame;
  /// only clearing empties it.
  QList pollFrame;
};

/// The line that reports an input: "a%Xb%Xd%02X" of address, block and value, without line end.
std::string FormatInputLine(std::size_t address, std::size_t block, std::uint8_t value);

}  // namespace vorn
