#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

/// The card bus in tables: what the codes are and what each card type understands. The frame is a
/// length byte N and N body bytes; the codes below are body bytes.
namespace sim {

constexpr int kSlots = 16;

/// The row of a table that has the keyword; null for none.
template <class ROW, std::size_t COUNT>
const ROW* FindRow(const ROW (&rows)[COUNT], std::string_view keyword) {
  for (const ROW& row : rows) {
    if (row.keyword == keyword) {
      return &row;
    }
  }
  return nullptr;
}

/// First body byte of a request.
namespace request {
constexpr std::uint8_t kOutput = 0x10;     // address, K, K data bytes
constexpr std::uint8_t kPoll = 0x20;       // address, count of input bytes
constexpr std::uint8_t kIdentify = 0x30;   // nothing else
constexpr std::uint8_t kHandshake = 0x40;  // 6F 9A
constexpr std::uint8_t kParameter = 0x50;  // address, then one of the two below
constexpr std::uint8_t kWrite = 0x01;  // third byte: parameter code and value, or an action code
constexpr std::uint8_t kRead = 0x40;   // third byte: parameter code
}  // namespace request

struct REQUEST_CODE {
  std::uint8_t code;
  const char* keyword;
};
inline constexpr REQUEST_CODE kRequestCodes[] = {{request::kOutput, "output"},
                                                 {request::kPoll, "poll"},
                                                 {request::kIdentify, "identify"},
                                                 {request::kHandshake, "handshake"},
                                                 {request::kParameter, "parameter"}};

inline constexpr std::array<std::uint8_t, 3> kHandshakeBody = {request::kHandshake, 0x6F, 0x9A};

/// First body byte of a reply.
namespace reply {
constexpr std::uint8_t kIdentified = 0x31;  // 16 type codes, slot 0 first
constexpr std::uint8_t kInput = 0x21;       // address, input bytes
constexpr std::uint8_t kQuery = 0x51;       // address, code asked for, value
constexpr std::uint8_t kVersion = 0x40;     // four characters
constexpr std::uint8_t kDone = 0x41;        // 'A', address: an output request was carried out
}  // namespace reply

/// The error replies. Which of them stands for which mishap is the simulator's choice; the line
/// only fixes that they are errors.
struct ERROR_CODE {
  std::uint8_t code;
  const char* keyword;
  const char* meaning;
};
namespace error {
constexpr std::uint8_t kTimeout = 'T';
constexpr std::uint8_t kDevice = 0x12;
constexpr std::uint8_t kFormat = '#';
constexpr std::uint8_t kOverflow = '$';
constexpr std::uint8_t kRefused = 'N';
constexpr std::uint8_t kBusy = 'B';
constexpr std::uint8_t kNoCard = 'C';
}  // namespace error
inline constexpr ERROR_CODE kErrorCodes[] = {
    {error::kTimeout, "timeout", "the card did not answer the controller in time"},
    {error::kDevice, "device", "the card reports a fault of its own"},
    {error::kFormat, "format", "the request is no request that the controller knows"},
    {error::kOverflow, "overflow", "the request is longer than the card can take"},
    {error::kRefused, "refused", "the card does not know the request or refuses its value"},
    {error::kBusy, "busy", "the bus or the card is busy"},
    {error::kNoCard, "no-card", "no card at that address"},
};

namespace type {
constexpr std::uint8_t kEmpty = 0;
constexpr std::uint8_t kDigitalOutput = 3;
constexpr std::uint8_t kDigitalInput = 4;
constexpr std::uint8_t kServo = 5;
constexpr std::uint8_t kMotor = 6;
constexpr std::uint8_t kAnalogue = 7;
constexpr std::uint8_t kKeys = 8;
constexpr std::uint8_t kLcd = 9;
constexpr std::uint8_t kIr = 10;
constexpr std::uint8_t kUnanswered = 255;
}  // namespace type

class CARD;
/// Takes one line for each thing that happens at a card, without "card A " in front.
using REPORT = std::function<void(const std::string& line)>;
using MAKE_CARD = std::unique_ptr<CARD>(int address, REPORT report);

/// A card of each type, booted. Each is defined in the type's own source.
MAKE_CARD MakeDigitalOutput, MakeDigitalInput, MakeServo, MakeMotor, MakeAnalogue, MakeKeys,
    MakeLcd, MakeIr;

struct CARD_TYPE {
  std::uint8_t code;    // in the identification reply
  const char* keyword;  // in rack files and commands
  const char* name;     // for people
  int inputs;           // bytes in the answer to a poll; 0: the card is not polled
  int outputs;          // bytes in an output request; 0: none, or a stream
  int channels;         // keys, lamps, servos, motors, pots: what an operator can name
  MAKE_CARD* make;
};
// clang-format off
inline constexpr CARD_TYPE kCardTypes[] = {
    // code                keyword        name                               inputs outputs channels made by
    {type::kDigitalOutput, "digital-out", "16 channel digital output",           0, 2, 16, MakeDigitalOutput},
    {type::kDigitalInput,  "digital-in",  "16 channel digital input",            2, 0, 16, MakeDigitalInput},
    {type::kServo,         "servo",       "6 channel RC servo controller",       0, 6,  6, MakeServo},
    {type::kMotor,         "motor",       "3 channel DC motor controller",       0, 4,  3, MakeMotor},
    {type::kAnalogue,      "analogue",    "6 channel analogue input",            6, 0,  6, MakeAnalogue},
    {type::kKeys,          "keys",        "key matrix and rotary encoder",       1, 0,  1, MakeKeys},
    {type::kLcd,           "lcd",         "alphanumeric LCD controller",         0, 0,  1, MakeLcd},
    {type::kIr,            "ir",          "IR remote controller",                0, 0,  1, MakeIr},
};
// clang-format on

/// The row of a type code; null for one that is not in the table.
const CARD_TYPE* FindCardType(int code);

/// A parameter of a card type: one byte for each channel. Codes are those of channel 0; channel c
/// has code + c. A code of 0 means that the line has no request for it.
struct PARAMETER {
  std::uint8_t type;
  const char* name;
  int channels;
  std::uint8_t writeCode;
  std::uint8_t readCode;
  std::uint8_t start;    // of a card fresh from the box
  std::uint8_t maximum;  // larger values are refused
  bool keptAtOnce;       // a write survives a reboot without a store action
};
// clang-format off
inline constexpr PARAMETER kParameters[] = {
    // type             name         channels write read  start max   kept at once
    {type::kServo,      "endA",      6,       0xC0, 0x21, 0x00, 0xFF, true},
    {type::kServo,      "endB",      6,       0xD0, 0x27, 0xFF, 0xFF, true},
    {type::kServo,      "position",  6,       0x00, 0x00, 0x80, 0xFF, false},
    {type::kMotor,      "silent",    3,       0xC0, 0x01, 0x01, 0x20, false},
    {type::kAnalogue,   "mask",      1,       0x01, 0x01, 0x3F, 0x3F, false},
    {type::kLcd,        "selftest",  1,       0x01, 0x00, 0xFF, 0xFF, true},
    {type::kLcd,        "initlight", 1,       0x02, 0x00, 0xFF, 0xFF, true},
};
// clang-format on

/// A write request without a value.
enum class ACTION_KIND { kStore, kRecall, kReboot };
struct ACTION {
  std::uint8_t type;  // 0: every card
  std::uint8_t code;
  ACTION_KIND kind;
  const char* event;  // what is reported when it happened
};
// clang-format off
inline constexpr ACTION kActions[] = {
    {0,               0xAB, ACTION_KIND::kReboot, "rebooted"},
    {type::kServo,    0x74, ACTION_KIND::kStore,  "positions stored"},
    {type::kServo,    0x3F, ACTION_KIND::kRecall, "moves to stored positions"},
    {type::kMotor,    0xCD, ACTION_KIND::kStore,  "silent ranges stored"},
    {type::kAnalogue, 0x02, ACTION_KIND::kStore,  "mask stored"},
};
// clang-format on

/// LCD commands: first data byte of an output request to an LCD card.
namespace lcd {
constexpr std::uint8_t kText = 9;  // column, row, characters, a closing zero
}
enum class LCD_EFFECT { kClear, kLightOn, kLightOff, kCursorOn, kCursorOff, kBlinkOn, kBlinkOff };
struct LCD_COMMAND {
  std::uint8_t code;
  LCD_EFFECT effect;
  const char* event;
};
// clang-format off
inline constexpr LCD_COMMAND kLcdCommands[] = {
    {0, LCD_EFFECT::kClear,     "clear"},
    {1, LCD_EFFECT::kLightOn,   "light on"},
    {2, LCD_EFFECT::kLightOff,  "light off"},
    {3, LCD_EFFECT::kCursorOn,  "cursor on"},
    {4, LCD_EFFECT::kCursorOff, "cursor off"},
    {5, LCD_EFFECT::kBlinkOn,   "blink on"},
    {6, LCD_EFFECT::kBlinkOff,  "blink off"},
};
// clang-format on

}  // namespace sim
