#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// The cards as a client meets them: what the daemon lists, what can be set, read and parametrised.
namespace client {

/// Addresses are 0 to 15; the daemon writes and reads them as one digit, 0 to F.
constexpr int kAddresses = 16;

enum class CARD_KIND : std::uint8_t {
  kEmpty,  ///< nothing there, or not asked yet
  kDigitalOutput,
  kDigitalInput,
  kServo,
  kMotor,
  kAnalogue,
  kKeys,
  kLcd,
  kIr,
  kSilent,        ///< a card that does not answer its controller
  kUnidentified,  ///< one that the daemon does not know
};

/// What a channel's value is.
enum class VALUE_FORM : std::uint8_t {
  kNone,
  kActiveLow,   ///< a bit of a block; 0 is on
  kActiveHigh,  ///< a bit of a block; 1 is on
  kPosition,    ///< a byte, 00 to FF for 0 to 100 %
  kSpeed,       ///< a signed byte, 80 to 7F for -100 to 100 %
  kKeys,        ///< what the key matrix card says: 00 none, 01 to 7F a key, 80 to FF the encoder
};

struct CARD_TYPE {
  CARD_KIND kind;
  const char* word;        ///< for people and settings: "digital-out"
  const char* listedName;  ///< as DISCOVER lists it
  VALUE_FORM form;
  int channels;       ///< that a person can name; 0: none
  int outputBlocks;   ///< that IO sets
  int inputBlocks;    ///< that the daemon polls and reports
  bool canBeAsked;    ///< GETLASTINPST: sends its last state again
  const char* about;  ///< one line for people
};

// clang-format off
inline constexpr CARD_TYPE kCardTypes[] = {
    // kind                      word            as DISCOVER lists it              form                     channels out in asked
    {CARD_KIND::kEmpty,         "empty",        "EMPTY",                          VALUE_FORM::kNone,        0, 0, 0, false, "no card, or not asked yet"},
    {CARD_KIND::kDigitalOutput, "digital-out",  "16 channel DIGITAL OUTPUT",      VALUE_FORM::kActiveLow,  16, 2, 0, false, "16 digital outputs"},
    {CARD_KIND::kDigitalInput,  "digital-in",   "16 channel DIGITAL INPUT",       VALUE_FORM::kActiveHigh, 16, 0, 2, true,  "16 digital inputs"},
    {CARD_KIND::kServo,         "servo",        "6 channel RC SERVO CONTROLLER",  VALUE_FORM::kPosition,    6, 6, 0, false, "6 RC servos"},
    {CARD_KIND::kMotor,         "motor",        "3 channel DC MOTOR CONTROLLER",  VALUE_FORM::kSpeed,       3, 4, 0, false, "3 DC motors"},
    {CARD_KIND::kAnalogue,      "analogue",     "6 channel ANALOGUE INPUT",       VALUE_FORM::kPosition,    6, 0, 6, true,  "6 analogue inputs"},
    {CARD_KIND::kKeys,          "keys",         "KEYMX and ROTE CONTROLLER",      VALUE_FORM::kKeys,        1, 0, 1, false, "key matrix and rotary encoder"},
    {CARD_KIND::kLcd,           "lcd",          "ALPHANUMERIC LCD CONTROLLER",    VALUE_FORM::kNone,        0, 0, 0, false, "alphanumeric display"},
    {CARD_KIND::kIr,            "ir",           "IR REMOTE CONTROLLER",           VALUE_FORM::kNone,        0, 0, 0, false, "IR remote control"},
    {CARD_KIND::kSilent,        "silent",       "CARD?",                          VALUE_FORM::kNone,        0, 0, 0, false, "a card that does not answer"},
    {CARD_KIND::kUnidentified,  "unidentified", "UNIDENTIFIED",                   VALUE_FORM::kNone,        0, 0, 0, false, "a card that vorn does not know"},
};
// clang-format on

const CARD_TYPE& TypeOf(CARD_KIND kind);
/// Null for none.
const CARD_TYPE* FindTypeByWord(std::string_view word);
const CARD_TYPE* FindTypeByListedName(std::string_view listedName);

/// The control byte of a motor card is a block of its own.
constexpr int kMotorControlBlock = 3;
constexpr int kOutputsOfABlock = 8;

/// What a card keeps for its whole life, set and read by the operator.
enum class PARAMETER : std::uint8_t {
  kMask,          ///< analogue: bit c is channel c
  kEndA,          ///< servo: end position A of a channel
  kEndB,          ///< servo: end position B
  kSilentRange,   ///< motor: 01 to 20; 00 makes the channel manual
  kSelfTest,      ///< LCD: message at the start; 00 or FF
  kInitialLight,  ///< LCD: backlight at the start; 00 or FF
};

struct CARD_PARAMETER {
  PARAMETER parameter;
  CARD_KIND kind;
  const char* name;  ///< "mask", "endA": the channel's number comes behind, if there are several
  int channels;      ///< 1: the card as a whole
  std::uint8_t largest;
  bool canBeRead;
  bool isSwitch;      ///< on or off in place of a number
  const char* about;  ///< in words
};

// clang-format off
inline constexpr CARD_PARAMETER kCardParameters[] = {
    // parameter                kind                 name        channels largest read  switch
    {PARAMETER::kMask,         CARD_KIND::kAnalogue, "mask",      1,      0x3F,   true,  false, "channels that are measured, a bit each"},
    {PARAMETER::kEndA,         CARD_KIND::kServo,    "endA",      6,      0xFF,   true,  false, "end position A"},
    {PARAMETER::kEndB,         CARD_KIND::kServo,    "endB",      6,      0xFF,   true,  false, "end position B"},
    {PARAMETER::kSilentRange,  CARD_KIND::kMotor,    "silent",    3,      0x20,   true,  false, "silent range; 00 is manual mode"},
    {PARAMETER::kSelfTest,     CARD_KIND::kLcd,      "selftest",  1,      0xFF,   false, true,  "self test message at the card's start"},
    {PARAMETER::kInitialLight, CARD_KIND::kLcd,      "initlight", 1,      0xFF,   false, true,  "backlight at the card's start"},
};
// clang-format on

const CARD_PARAMETER& RowOf(PARAMETER parameter);

/// One digit, 0 to F. Throws BAD_VALUE for an address that is none.
char AddressDigit(int address);
/// 0 to 15 of one hexadecimal digit of either case; -1 for another character.
int ReadDigit(char digit);

/// Two digits, upper case: what the daemon reads. (It takes a lower-case digit for 0.)
std::string HexByte(std::uint8_t value);

// A channel's value between the byte and what a person says. Each throws BAD_VALUE for a form that
// has no such values.

/// In percent, 0 to 100 for kPosition, -100 to 100 for kSpeed; 80 counts as 81 there.
double PercentOf(VALUE_FORM form, std::uint8_t raw);
/// The nearest byte. Throws BAD_VALUE outside the range.
std::uint8_t RawOf(VALUE_FORM form, double percent);
/// A bit's state: on or off. Throws BAD_VALUE for a bit that is not 0 to 7; WithBit does, too.
bool IsOn(VALUE_FORM form, std::uint8_t block, int bit);
/// The block with that bit on or off.
std::uint8_t WithBit(VALUE_FORM form, std::uint8_t block, int bit, bool on);

}  // namespace client
