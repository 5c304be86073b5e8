#include "vorn/master/CaeCommands.h"

#include "vorn/base/QList.h"
#include "vorn/master/CAE_INTERPRETER.h"
#include "vorn/master/TextParts.h"

// --- the line -----------------------------------------------------------------------------------

CAE_LINE::CAE_LINE(const std::string& text, const std::string& inpSeparator)
    : m_text(text),
      m_inpSeparator(inpSeparator),
      m_colon(text.find(':')),
      m_equals(text.find('=')) {
}

bool CAE_LINE::Is(const std::string& keyword) const {
  return m_text == keyword + m_inpSeparator;
}

bool CAE_LINE::Contains(const std::string& keyword) const {
  return m_text.find(keyword) != std::string::npos;
}

bool CAE_LINE::ContainsSeparator() const {
  return Contains(m_inpSeparator);
}

std::string CAE_LINE::AddressText() const {
  return m_colon == std::string::npos ? std::string() : PartOf(m_text, m_colon + 1, 1);
}

std::uint8_t CAE_LINE::Address() const {
  return HexCharToByte(CharacterAt(AddressText(), 0));
}

std::string CAE_LINE::StateText() const {
  return m_equals == std::string::npos ? std::string() : PartOf(m_text, m_equals + 1, 2);
}

std::uint8_t CAE_LINE::Value() const {
  return HexNum2Byte(CharacterAt(StateText(), 0), CharacterAt(StateText(), 1));
}

std::uint8_t CAE_LINE::Block() const {
  return HexCharToByte(CharacterAt(StateText(), 0));
}

std::string CAE_LINE::NumberText() const {
  if (m_equals == std::string::npos) {
    return {};
  }
  const std::size_t end = m_text.find_first_of(m_inpSeparator, m_equals + 1);
  return m_text.substr(m_equals + 1, end - (m_equals + 1));
}

std::string CAE_LINE::BeforeColon(std::size_t distance) const {
  return m_colon == std::string::npos || m_colon < distance ? std::string()
                                                            : PartOf(m_text, m_colon - distance, 1);
}

std::uint8_t CAE_LINE::Channel() const {
  return HexCharToByte(CharacterAt(ChannelText(), 0));
}

std::string CAE_LINE::ChannelText() const {
  return BeforeColon(1);
}

std::string CAE_LINE::EndPositionText() const {
  return BeforeColon(2);
}

// --- the commands -------------------------------------------------------------------------------

bool CAE_COMMAND::Matches(const CAE_LINE& line) const {
  switch (match) {
    case CAE_MATCH::kExact:
      return line.Is(keyword);
    case CAE_MATCH::kContains:
      return line.Contains(keyword) && line.ContainsSeparator();
    case CAE_MATCH::kContainsAlone:
      return line.Contains(keyword);
  }
  return false;
}

/// Has access to the interpreter's operations; nothing but the table.
struct CAE_COMMAND_TABLE {
  static constexpr auto kExact = CAE_MATCH::kExact;
  static constexpr auto kContains = CAE_MATCH::kContains;
  static constexpr auto kAlone = CAE_MATCH::kContainsAlone;

  static constexpr const char* kLcdOnly = "CIE: THIS COMMAND IS VALID FOR LCD CONTROL CARD ONLY";
  static constexpr const char* kAnalogueOnly =
      "CIE: THIS COMMAND IS VALID ON ANALOG INPUT CARD ONLY";
  static constexpr const char* kServoOnly =
      "CIE: THIS COMMAND IS VALID ON SERVO CONTROLLER CARD ONLY";
  static constexpr const char* kLegalOnServoOnly =
      "CIE: THIS COMMAND IS LEGAL ON SERVO CONTROLLER CARD ONLY";
  static constexpr const char* kDcMotorOnly =
      "CIE: THIS COMMAND IS VALID ON DC MOTOR CONTROLLER CARD ONLY";
  static constexpr const char* kInputOnly = "CIE: THIS COMMAND IS VALID ON INPUT CARDS";
  static constexpr const char* kReportingInputOnly =
      "CIE: THIS COMMAND IS VALID ON ANALOG OR DIGITAL INPUT CARD ONLY";

  using CAE = CAE_INTERPRETER;

  // clang-format off
  static constexpr CAE_COMMAND kCommands[] = {
      // keyword         match      operation                    card type         other card           no acknowledgement
      // VALAMI is compared and the result discarded: the line stays unknown.
      {"VALAMI",         kExact,    nullptr,                     kAnyCard,         nullptr,             nullptr},
      {"SPEED=",         kAlone,    &CAE::SetSpeed,              kAnyCard,         nullptr,             nullptr},
      {"DISABLEPOLL",    kExact,    &CAE::DisablePoll,           kAnyCard,         nullptr,             nullptr},
      {"DRVVER",         kExact,    &CAE::ShowVersion,           kAnyCard,         nullptr,             nullptr},
      {"LCDSELFTEST:",   kContains, &CAE::SetLcdSelfTest,        kAlphanumericLcd, kLcdOnly,            "CIE: STATE WRITE ERROR"},
      {"LCDINITLIGHT:",  kContains, &CAE::SetLcdInitLight,       kAlphanumericLcd, kLcdOnly,            "CIE: STATE WRITE ERROR"},
      {"REBOOT:",        kContains, &CAE::Reboot,                kAnyCard,         nullptr,             "CIE: BUS WRITE ERROR"},
      {"SETANMASK:",     kContains, &CAE::SetAnalogueMask,       kAnalogueInput,   kAnalogueOnly,       "CIE: MASK WRITE ERROR"},
      {"GETANMASK:",     kContains, &CAE::GetAnalogueMask,       kAnalogueInput,   kAnalogueOnly,       "CIE: MASK READ ERROR"},
      {"STOREANMASK:",   kContains, &CAE::StoreAnalogueMask,     kAnalogueInput,   kAnalogueOnly,       "CIE: MASK STORE ERROR"},
      {"STORESRVPOS:",   kContains, &CAE::StoreServoPositions,   kRcServo,         kServoOnly,          "CIE: POSITION STORING ERROR"},
      {"MOVESTRPOS:",    kContains, &CAE::MoveToStoredPositions, kRcServo,         kLegalOnServoOnly,   "CIE: POSITIONS MOVING ERROR"},
      {"SETSC",          kContains, &CAE::SetServoParameter,     kRcServo,         kServoOnly,          "CIE: PARAM WRITE ERROR"},
      {"GETSC",          kContains, &CAE::GetServoParameter,     kRcServo,         kServoOnly,          "CIE: PARAM READ ERROR"},
      {"SETMSR",         kContains, &CAE::SetSilentRange,        kDcMotor,         kDcMotorOnly,        "CIE: PARAM WRITE ERROR"},
      {"GETMSR",         kContains, &CAE::GetSilentRange,        kDcMotor,         kDcMotorOnly,        "CIE: PARAM READ ERROR"},
      {"STOREMSRS",      kContains, &CAE::StoreSilentRanges,     kDcMotor,         kDcMotorOnly,        "CIE: MSR STORING ERROR"},
      {"POLLON:",        kContains, &CAE::SwitchPollOn,          kAnyCard,         kInputOnly,          nullptr},
      {"POLLOFF:",       kContains, &CAE::SwitchPollOff,         kAnyCard,         kInputOnly,          nullptr},
      {"ENABLEPOLL",     kExact,    &CAE::EnablePoll,            kAnyCard,         nullptr,             nullptr},
      {"POLLSTATE",      kExact,    &CAE::ShowPollState,         kAnyCard,         nullptr,             nullptr},
      {"DISCOVER",       kExact,    &CAE::Discover,              kAnyCard,         nullptr,             nullptr},
      {"FORCEDISCOVER",  kExact,    &CAE::ForceDiscover,         kAnyCard,         nullptr,             nullptr},
      {"EXIT",           kExact,    &CAE::Exit,                  kAnyCard,         nullptr,             nullptr},
      {"GETLASTINPST:",  kContains, &CAE::SendLastInputState,    kAnyCard,         kReportingInputOnly, nullptr},
      {"HELP",           kExact,    &CAE::ShowHelp,              kAnyCard,         nullptr,             nullptr},
      {"IOEXAMPLES",     kExact,    &CAE::ShowIoExamples,        kAnyCard,         nullptr,             nullptr},
  };
  // clang-format on
};

std::span<const CAE_COMMAND> CaeCommands() {
  return CAE_COMMAND_TABLE::kCommands;
}
