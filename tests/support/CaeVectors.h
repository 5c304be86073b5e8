#pragma once

#include <array>
#include <cstddef>
#include <iterator>
#include <string>
#include <vector>

/// What the manual says of each command of CAE, in its order, with lines to try it by. It knows
/// nothing of the daemon: unit tests, system tests and fuzz targets hold the daemon against it.
namespace support::cae {

enum class MATCH { kExact, kContains, kAlone, kNever };

/// What a command does besides answering.
enum class DOES {
  kAnswers,
  kAsksCard,
  kSwitchesCard,   ///< an input card
  kRepeatsInput,   ///< of a digital or analogue input card
  kListsCards,     ///< sixteen lines
  kListsPolls,     ///< a line for each input card
  kShowsHelp,      ///< kHelpLines
  kShowsExamples,  ///< kExampleLines
  kSetsSpeed,
};

/// A line and all that passes between operator, daemon and card. "@" is the card's address. Up to
/// "|" an answer is the same whatever the parameters are.
struct VECTOR {
  const char* keyword;
  MATCH match;
  DOES does;
  int cardType;      ///< that it is for; 0: any
  const char* line;  ///< without the separator
  const char* body;  ///< of the request to a card, which answers kValueRead if it is asked
  const char* answer;
  const char* result;   ///< the line for programs behind it, or null
  const char* failure;  ///< null: it cannot fail
  const char* refusal;  ///< for another card; null: there is none
};

constexpr int kValueRead = 0x2E;
constexpr std::size_t kHelpLines = 69;
constexpr std::size_t kExampleLines = 22;
constexpr const char* kUnknown = "CIE: UNKNOWN COMMAND ";

/// The input cards, with the blocks that GETLASTINPST can ask them for.
struct INPUT_CARD {
  int type;
  std::size_t blocks;
};
constexpr INPUT_CARD kInputCards[] = {{4, 2}, {7, 6}, {8, 0}};

// clang-format off
constexpr const char* kLcd = "CIE: THIS COMMAND IS VALID FOR LCD CONTROL CARD ONLY";
constexpr const char* kAnalogue = "CIE: THIS COMMAND IS VALID ON ANALOG INPUT CARD ONLY";
constexpr const char* kServo = "CIE: THIS COMMAND IS VALID ON SERVO CONTROLLER CARD ONLY";
constexpr const char* kLegal = "CIE: THIS COMMAND IS LEGAL ON SERVO CONTROLLER CARD ONLY";
constexpr const char* kMotor = "CIE: THIS COMMAND IS VALID ON DC MOTOR CONTROLLER CARD ONLY";
constexpr const char* kInput = "CIE: THIS COMMAND IS VALID ON INPUT CARDS";
constexpr const char* kReporting = "CIE: THIS COMMAND IS VALID ON ANALOG OR DIGITAL INPUT CARD ONLY";
constexpr const char* kPollingOn = "CIA: GLOBAL POLLING IS ENABLED";
constexpr const char* kPollingOff = "CIA: GLOBAL POLLING IS DISABLED";
constexpr const char* kSent = "CIA: LAST INPUT STATE SENT ON IO INTERFACE";
constexpr const char* kOutOfRange = "CIE: Parameter is out of range (1..100)";
constexpr const char* kNoBlock = "CIE: INVALID BLOCK NUMBER";
constexpr auto kNone = nullptr;

constexpr VECTOR kVectors[] = {
    {"VALAMI",        MATCH::kNever,    DOES::kAnswers,       0, "VALAMI",             "", "", kNone, kNone, kNone},
    {"SPEED=",        MATCH::kAlone,    DOES::kSetsSpeed,     0, "SPEED=50",           "", "CIA: SPEED IS SET to |50%", kNone, kOutOfRange, kNone},
    {"DISABLEPOLL",   MATCH::kExact,    DOES::kAnswers,       0, "DISABLEPOLL",        "", kPollingOff, kNone, kNone, kNone},
    {"DRVVER",        MATCH::kExact,    DOES::kAnswers,       0, "DRVVER",             "", "CIA: DRIVER VERSION 1.20", kNone, kNone, kNone},
    {"LCDSELFTEST:",  MATCH::kContains, DOES::kAsksCard,      9, "LCDSELFTEST:@=ON",   "50 0@ 01 01 FF", "CIA: SELFTEST STATE IS SET TO |ON at address @", kNone, "CIE: STATE WRITE ERROR", kLcd},
    {"LCDSELFTEST:",  MATCH::kContains, DOES::kAsksCard,      9, "LCDSELFTEST:@=OFF",  "50 0@ 01 01 00", "CIA: SELFTEST STATE IS SET TO |OFF at address @", kNone, "CIE: STATE WRITE ERROR", kLcd},
    {"LCDINITLIGHT:", MATCH::kContains, DOES::kAsksCard,      9, "LCDINITLIGHT:@=ON",  "50 0@ 01 02 FF", "CIA: INITLIGHT STATE IS SET TO |ON at address @", kNone, "CIE: STATE WRITE ERROR", kLcd},
    {"LCDINITLIGHT:", MATCH::kContains, DOES::kAsksCard,      9, "LCDINITLIGHT:@=OFF", "50 0@ 01 02 00", "CIA: INITLIGHT STATE IS SET TO |OFF at address @", kNone, "CIE: STATE WRITE ERROR", kLcd},
    {"REBOOT:",       MATCH::kContains, DOES::kAsksCard,      0, "REBOOT:@",           "50 0@ 01 AB", "CIA: Card is REBOOTED", "RBT:0x|@:OK", "CIE: BUS WRITE ERROR", kNone},
    {"SETANMASK:",    MATCH::kContains, DOES::kAsksCard,      7, "SETANMASK:@=3F",     "50 0@ 01 01 3F", "CIA: Channel MASK of the card is SET", "AMS:0x|@:0x3F", "CIE: MASK WRITE ERROR", kAnalogue},
    {"GETANMASK:",    MATCH::kContains, DOES::kAsksCard,      7, "GETANMASK:@",        "50 0@ 40 01", "CIA: MASK is GOT from card", "AMV:0x|@:0x2E", "CIE: MASK READ ERROR", kAnalogue},
    {"STOREANMASK:",  MATCH::kContains, DOES::kAsksCard,      7, "STOREANMASK:@",      "50 0@ 01 02", "CIA: MASK IS STORED at address |@", kNone, "CIE: MASK STORE ERROR", kAnalogue},
    {"STORESRVPOS:",  MATCH::kContains, DOES::kAsksCard,      5, "STORESRVPOS:@",      "50 0@ 01 74", "CIA: POSITIONS ARE STORED at address |@", kNone, "CIE: POSITION STORING ERROR", kServo},
    {"MOVESTRPOS:",   MATCH::kContains, DOES::kAsksCard,      5, "MOVESTRPOS:@",       "50 0@ 01 3F", "CIA: SERVOS ARE MOVED TO STORED POSITIONS at address |@", kNone, "CIE: POSITIONS MOVING ERROR", kLegal},
    {"SETSC",         MATCH::kContains, DOES::kAsksCard,      5, "SETSCA5:@=01",       "50 0@ 01 C5 01", "CIA: SERVO PARAM of the card is SET", "SPS:0x|@:SCA5:0x01", "CIE: PARAM WRITE ERROR", kServo},
    {"SETSC",         MATCH::kContains, DOES::kAsksCard,      5, "SETSCB3:@=7F",       "50 0@ 01 D3 7F", "CIA: SERVO PARAM of the card is SET", "SPS:0x|@:SCB3:0x7F", "CIE: PARAM WRITE ERROR", kServo},
    {"SETSC",         MATCH::kContains, DOES::kAsksCard,      5, "SETSCX3:@=7F",       "50 0@ 01 C3 7F", "CIA: SERVO PARAM of the card is SET", "SPS:0x|@:SCX3:0x7F", "CIE: PARAM WRITE ERROR", kServo},
    {"GETSC",         MATCH::kContains, DOES::kAsksCard,      5, "GETSCA0:@",          "50 0@ 40 21", "CIA: SERVO PARAM is GOT from card", "SPG:0x|@:SCA0:0x2E", "CIE: PARAM READ ERROR", kServo},
    {"GETSC",         MATCH::kContains, DOES::kAsksCard,      5, "GETSCA5:@",          "50 0@ 40 26", "CIA: SERVO PARAM is GOT from card", "SPG:0x|@:SCA5:0x2E", "CIE: PARAM READ ERROR", kServo},
    {"GETSC",         MATCH::kContains, DOES::kAsksCard,      5, "GETSCB5:@",          "50 0@ 40 2C", "CIA: SERVO PARAM is GOT from card", "SPG:0x|@:SCB5:0x2E", "CIE: PARAM READ ERROR", kServo},
    {"SETMSR",        MATCH::kContains, DOES::kAsksCard,      6, "SETMSR2:@=20",       "50 0@ 01 C2 20", "CIA: MSR value of the card is SET", "MPS:0x|@:MSR2:0x20", "CIE: PARAM WRITE ERROR", kMotor},
    {"GETMSR",        MATCH::kContains, DOES::kAsksCard,      6, "GETMSR1:@",          "50 0@ 40 02", "CIA: MSR value is GOT from card", "MSR|1:0x@:0x2E", "CIE: PARAM READ ERROR", kMotor},
    {"STOREMSRS",     MATCH::kContains, DOES::kAsksCard,      6, "STOREMSRS:@",        "50 0@ 01 CD", "CIA: MSR values are STORED at address |@", kNone, "CIE: MSR STORING ERROR", kMotor},
    {"POLLON:",       MATCH::kContains, DOES::kSwitchesCard,  0, "POLLON:@",           "", "CIA: POLLON is OK at address |@", kNone, kNone, kInput},
    {"POLLOFF:",      MATCH::kContains, DOES::kSwitchesCard,  0, "POLLOFF:@",          "", "CIA: POLLOFF is OK at address |@", kNone, kNone, kInput},
    {"ENABLEPOLL",    MATCH::kExact,    DOES::kAnswers,       0, "ENABLEPOLL",         "", kPollingOn, kNone, kNone, kNone},
    {"POLLSTATE",     MATCH::kExact,    DOES::kListsPolls,    0, "POLLSTATE",          "", "CIA: GLOBAL POLLING IS |", kNone, kNone, kNone},
    {"DISCOVER",      MATCH::kExact,    DOES::kListsCards,    0, "DISCOVER",           "", "DISCOVER LIST:", kNone, kNone, kNone},
    {"FORCEDISCOVER", MATCH::kExact,    DOES::kListsCards,    0, "FORCEDISCOVER",      "", "FORCED DISCOVER LIST:", kNone, kNone, kNone},
    {"EXIT",          MATCH::kExact,    DOES::kAnswers,       0, "EXIT",               "", "VORN: Bye Bye...", kNone, kNone, kNone},
    {"GETLASTINPST:", MATCH::kContains, DOES::kRepeatsInput,  0, "GETLASTINPST:@=1",   "", kSent, kNone, kNoBlock, kReporting},
    {"HELP",          MATCH::kExact,    DOES::kShowsHelp,     0, "HELP",               "", "VORN quick HELP:", kNone, kNone, kNone},
    {"IOEXAMPLES",    MATCH::kExact,    DOES::kShowsExamples, 0, "IOEXAMPLES",         "", "BLOCK DEVICE OUTPUT EXAMPLES:", kNone, kNone, kNone},
};
// clang-format on

/// A vector's text for the card at an address, a hex digit.
inline std::string At(const char* text, char digit) {
  std::string result;
  for (const char character : std::string(text)) {
    if (character != '|') {
      result += character == '@' ? digit : character;
    }
  }
  return result;
}

/// The whole answers of a vector whose command is carried out.
inline std::vector<std::string> Answers(const VECTOR& vector, char digit) {
  std::vector<std::string> answers = {At(vector.answer, digit)};
  if (vector.result != nullptr) {
    answers.push_back(At(vector.result, digit));
  }
  return answers;
}

/// The first of its keyword, where several lines try one command.
inline bool IsFirst(const VECTOR& vector) {
  return &vector == std::begin(kVectors) || std::string((&vector - 1)->keyword) != vector.keyword;
}

/// The row of a card type; null: it is no input card.
inline const INPUT_CARD* FindInputCard(int type) {
  for (const INPUT_CARD& card : kInputCards) {
    if (card.type == type) {
      return &card;
    }
  }
  return nullptr;
}

/// What DISCOVER and FORCEDISCOVER show of sixteen cards.
inline std::vector<std::string> CardList(const std::string& title,
                                         const std::array<std::string, 16>& names) {
  std::vector<std::string> lines = {title};
  for (std::size_t i = 0; i < names.size(); ++i) {
    lines.push_back(std::string("DTI:0x") + "0123456789ABCDEF"[i] + ":" + names.at(i));
  }
  return lines;
}

}  // namespace support::cae
