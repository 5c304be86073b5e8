#include "vorn/bus/CardTypes.h"

#include <algorithm>
#include <iterator>

namespace {

// clang-format off
constexpr CARD_TYPE kCardTypes[] = {
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
constexpr CARD_TYPE kUnidentified =
    {kEmptySlot,        "UNIDENTIFIED",                  kNoUsableCard, 0,        0, 0x00,    0,    0,      0};
// clang-format on

}  // namespace

const CARD_TYPE& FindCardType(std::uint8_t code) {
  const auto* const found = std::find_if(std::begin(kCardTypes), std::end(kCardTypes),
                                         [code](const CARD_TYPE& row) { return row.code == code; });
  return found == std::end(kCardTypes) ? kUnidentified : *found;
}
