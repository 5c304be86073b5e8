#pragma once

#include <cstddef>
#include <cstdint>

namespace vorn {

/// Type codes as the bus controller reports them.
enum CARD_CODE : std::uint8_t {
  kEmptySlot = 0,
  kDigitalOutput = 3,
  kDigitalInput = 4,
  kRcServo = 5,
  kDcMotor = 6,
  kAnalogueInput = 7,
  kKeyMatrix = 8,
  kAlphanumericLcd = 9,
  kIrRemote = 10,
  kUnanswered = 255,
};

/// Values of a card record's state word.
enum CARD_STATE : std::int32_t {
  kOutputCard = 0,
  kInputCard = 1,     ///< can be polled
  kNoUsableCard = 3,  ///< empty, unanswered or unidentified
};

/// What a slot becomes when the controller reports a type code for it, and what a block command
/// sends to such a card.
struct CARD_TYPE {
  std::uint8_t code;
  const char* name;  ///< as listed by DISCOVER; at most 39 characters
  CARD_STATE state;
  std::int32_t channels;      ///< blocks or channels of the card
  std::size_t presetValues;   ///< so many values, from the first, are set on identification
  std::uint8_t preset;        ///< to this
  std::uint8_t pollCount;     ///< last byte of its poll request; 0: never polled
  std::uint8_t outputValues;  ///< values sent by a block command; 0: it takes none
  std::uint8_t reportBlocks;  ///< blocks whose last input can be sent again; 0: it cannot
};

// clang-format off
inline constexpr CARD_TYPE kCardTypes[] = {
    // code             name                             state          channels  preset      poll  output  report
    {kEmptySlot,        "EMPTY",                         kNoUsableCard, 0,        0, 0x00,    0,    0,      0},
    {kDigitalOutput,    "16 channel DIGITAL OUTPUT",     kOutputCard,   2,        2, 0xFF,    0,    2,      0},
    {kDigitalInput,     "16 channel DIGITAL INPUT",      kInputCard,    2,        0, 0x00,    2,    0,      2},
    {kRcServo,          "6 channel RC SERVO CONTROLLER", kOutputCard,   6,        6, 0x80,    0,    6,      0},
    {kDcMotor,          "3 channel DC MOTOR CONTROLLER", kOutputCard,   6,        0, 0x00,    0,    4,      0},
    {kAnalogueInput,    "6 channel ANALOGUE INPUT",      kInputCard,    6,        0, 0x00,    6,    0,      6},
    {kKeyMatrix,        "KEYMX and ROTE CONTROLLER",     kInputCard,    1,        0, 0x00,    1,    0,      0},
    {kAlphanumericLcd,  "ALPHANUMERIC LCD CONTROLLER",   kOutputCard,   21,       0, 0x00,    0,    0,      0},
    {kIrRemote,         "IR REMOTE CONTROLLER",          kOutputCard,   1,        0, 0x00,    0,    0,      0},
    {kUnanswered,       "CARD?",                         kNoUsableCard, 0,        0, 0x00,    0,    0,      0},
};

/// The code is not used: the record keeps the one reported.
inline constexpr CARD_TYPE kUnidentified =
    {kEmptySlot,        "UNIDENTIFIED",                  kNoUsableCard, 0,        0, 0x00,    0,    0,      0};
// clang-format on

/// The row of a type code; for a code that is in no row, the row of unidentified cards.
const CARD_TYPE& FindCardType(std::uint8_t code);

}  // namespace vorn
