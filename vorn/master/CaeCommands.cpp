#include "vorn/master/CaeCommands.h"

#include "vorn/base/Values.h"
#include "vorn/master/DaemonControl.h"
#include "vorn/master/HelpTexts.h"
#include "vorn/master/TextParts.h"

#include <utility>

namespace vorn {

namespace {

constexpr int kDrainWaitS = 1;
constexpr int kIdentificationWaitS = 1;
constexpr const char* kPollingOn = "CIA: GLOBAL POLLING IS ENABLED";
constexpr const char* kPollingOff = "CIA: GLOBAL POLLING IS DISABLED";

// --- the functions: what is more than a request and its answers ----------------------------------

bool SetSpeed(CAE_CONTEXT& context, const CAE_LINE& line) {
  constexpr std::int32_t kSlowest = 1;
  constexpr std::int32_t kFastest = 100;
  const std::int32_t percent = ATOL(line.NumberText());
  if (percent < kSlowest || percent > kFastest) {
    return false;
  }
  context.daemon.SetThreadDelays(SpeedToDelayUs(percent));
  return true;
}

bool Exit(CAE_CONTEXT& context, const CAE_LINE&) {
  context.Reply(kFarewell);
  context.daemon.PauseSeconds(kFarewellWaitS);
  context.daemon.CloseCaeConnection();
  return true;
}

bool ShowLines(CAE_CONTEXT& context, std::span<const char* const> lines) {
  for (const char* const line : lines) {
    context.Reply(line);
  }
  return true;
}

bool ShowHelp(CAE_CONTEXT& context, const CAE_LINE&) {
  return ShowLines(context, QuickHelp());
}

bool ShowIoExamples(CAE_CONTEXT& context, const CAE_LINE&) {
  return ShowLines(context, IoExamples());
}

// --- polling ---

template <bool ON>
bool SwitchCard(CAE_CONTEXT& context, const CAE_LINE& line) {
  context.cards.With(line.Address(), [](PERIFCARD& card) { card.pollFlag = ON ? 1 : 0; });
  return true;
}

template <bool ON>
bool SwitchAll(CAE_CONTEXT& context, const CAE_LINE&) {
  context.daemon.SetPolling(ON);
  return true;
}

bool IsInput(const PERIFCARD& card) {
  return card.stateWord == kInputCard;
}

bool ShowPollState(CAE_CONTEXT& context, const CAE_LINE&) {
  context.Reply(context.daemon.Polling() ? kPollingOn : kPollingOff);
  for (std::uint8_t address = 0; address < bus::kAddresses; ++address) {
    const auto [input, polled] = context.cards.With(address, [](const PERIFCARD& card) {
      return std::pair(IsInput(card), card.pollFlag != 0);
    });
    if (input) {
      context.Reply(FormatText("PTI:0x%X:%s", address, polled ? "ON" : "OFF"));
    }
  }
  return true;
}

bool SendLastInputState(CAE_CONTEXT& context, const CAE_LINE& line) {
  const std::uint8_t block = line.Block();
  const auto [blocks, value] = context.cards.With(line.Address(), [&](const PERIFCARD& card) {
    return std::pair(FindCardType(card.typeCode).reportBlocks, card.values[block]);
  });
  if (block >= blocks) {
    return false;
  }
  context.inputLines.ToQueue(Convert_String2QList(FormatInputLine(line.Address(), block, value)));
  return true;
}

// --- discovery ---

bool ListCards(CAE_CONTEXT& context, const char* title) {
  context.Reply(title);
  for (std::uint8_t address = 0; address < bus::kAddresses; ++address) {
    const auto name = context.cards.With(address, [](const PERIFCARD& card) { return card.name; });
    context.Reply(FormatText("DTI:0x%X:%s", address, name.data()));
  }
  return true;
}

bool Discover(CAE_CONTEXT& context, const CAE_LINE&) {
  return ListCards(context, "DISCOVER LIST:");
}

bool ForceDiscover(CAE_CONTEXT& context, const CAE_LINE&) {
  const bool polling = context.daemon.Polling();
  context.daemon.SetPolling(false);
  context.daemon.PauseSeconds(kDrainWaitS);
  for (std::size_t address = 0; address < bus::kAddresses; ++address) {
    context.cards.With(address, [](PERIFCARD& card) { card.clearPerifCard(); });
  }
  context.queueRequest(bus::IdentificationRequest());
  context.daemon.PauseSeconds(kIdentificationWaitS);
  ListCards(context, "FORCED DISCOVER LIST:");
  context.daemon.SetPolling(polling);
  return true;
}

// --- the table ----------------------------------------------------------------------------------

template <CARD_CODE TYPE>
bool Is(const PERIFCARD& card) {
  return card.typeCode == TYPE;
}

bool Reports(const PERIFCARD& card) {
  return FindCardType(card.typeCode).reportBlocks != 0;
}

// clang-format off
constexpr CAE_CARDS kLcd         = {Is<kAlphanumericLcd>, "CIE: THIS COMMAND IS VALID FOR LCD CONTROL CARD ONLY"};
constexpr CAE_CARDS kAnalogue    = {Is<kAnalogueInput>,   "CIE: THIS COMMAND IS VALID ON ANALOG INPUT CARD ONLY"};
constexpr CAE_CARDS kServo       = {Is<kRcServo>,         "CIE: THIS COMMAND IS VALID ON SERVO CONTROLLER CARD ONLY"};
constexpr CAE_CARDS kServoLegal  = {Is<kRcServo>,         "CIE: THIS COMMAND IS LEGAL ON SERVO CONTROLLER CARD ONLY"};
constexpr CAE_CARDS kMotor       = {Is<kDcMotor>,         "CIE: THIS COMMAND IS VALID ON DC MOTOR CONTROLLER CARD ONLY"};
constexpr CAE_CARDS kInput       = {IsInput,              "CIE: THIS COMMAND IS VALID ON INPUT CARDS"};
constexpr CAE_CARDS kReporting   = {Reports,              "CIE: THIS COMMAND IS VALID ON ANALOG OR DIGITAL INPUT CARD ONLY"};
constexpr const CAE_CARDS* kAny  = nullptr;

using FUNCTION = bool (*)(CAE_CONTEXT&, const CAE_LINE&);
using PARAMETER = bus::PARAMETER;
constexpr CAE_STEP kAnswer = {};
constexpr CAE_STEP Run(FUNCTION function) { return {CAE_STEP::kRun, function}; }
constexpr CAE_STEP Tell(std::uint8_t action) { return {CAE_STEP::kTell, nullptr, action}; }
constexpr CAE_STEP Write(PARAMETER it, PARAMETER ofB = {}) { return {CAE_STEP::kWrite, nullptr, 0, it, ofB}; }
constexpr CAE_STEP WriteState(PARAMETER it) { return {CAE_STEP::kWriteState, nullptr, 0, it}; }
constexpr CAE_STEP Read(PARAMETER it, PARAMETER ofB = {}) { return {CAE_STEP::kRead, nullptr, 0, it, ofB}; }

constexpr auto kExact = CAE_MATCH::kExact;
constexpr auto kContains = CAE_MATCH::kContains;
constexpr auto kAlone = CAE_MATCH::kContainsAlone;
constexpr auto kNever = CAE_MATCH::kNever;

using namespace bus::action;     // NOLINT(google-build-using-namespace): the table's words
using namespace bus::parameter;  // NOLINT(google-build-using-namespace)

constexpr CAE_COMMAND kCommands[] = {
    // keyword        match      cards         what it does                   where that fails
    //     reply, and result for programs
    {"VALAMI",        kNever,    kAny,         kAnswer},
    {"SPEED=",        kAlone,    kAny,         Run(SetSpeed),                 "CIE: Parameter is out of range (1..100)",
        {"CIA: SPEED IS SET to %s%%", "n"}},
    {"DISABLEPOLL",   kExact,    kAny,         Run(SwitchAll<false>),         nullptr, {kPollingOff}},
    {"DRVVER",        kExact,    kAny,         kAnswer,                       nullptr, {"CIA: DRIVER VERSION 1.20"}},
    {"LCDSELFTEST:",  kContains, &kLcd,        WriteState(kLcdSelfTest),      "CIE: STATE WRITE ERROR",
        {"CIA: SELFTEST STATE IS SET TO %s at address %s", "sx"}},
    {"LCDINITLIGHT:", kContains, &kLcd,        WriteState(kLcdInitLight),     "CIE: STATE WRITE ERROR",
        {"CIA: INITLIGHT STATE IS SET TO %s at address %s", "sx"}},
    {"REBOOT:",       kContains, kAny,         Tell(kReboot),                 "CIE: BUS WRITE ERROR",
        {"CIA: Card is REBOOTED"}, {"RBT:0x%X:OK", "x"}},
    {"SETANMASK:",    kContains, &kAnalogue,   Write(kAnalogueMask),          "CIE: MASK WRITE ERROR",
        {"CIA: Channel MASK of the card is SET"}, {"AMS:0x%X:0x%.2X", "xv"}},
    {"GETANMASK:",    kContains, &kAnalogue,   Read(kAnalogueMask),           "CIE: MASK READ ERROR",
        {"CIA: MASK is GOT from card"}, {"AMV:0x%X:0x%.2X", "xr"}},
    {"STOREANMASK:",  kContains, &kAnalogue,   Tell(kStoreAnalogueMask),      "CIE: MASK STORE ERROR",
        {"CIA: MASK IS STORED at address %s", "x"}},
    {"STORESRVPOS:",  kContains, &kServo,      Tell(kStoreServoPositions),    "CIE: POSITION STORING ERROR",
        {"CIA: POSITIONS ARE STORED at address %s", "x"}},
    {"MOVESTRPOS:",   kContains, &kServoLegal, Tell(kMoveToStoredPositions),  "CIE: POSITIONS MOVING ERROR",
        {"CIA: SERVOS ARE MOVED TO STORED POSITIONS at address %s", "x"}},
    {"SETSC",         kContains, &kServo,      Write(kServoEndA, kServoEndB), "CIE: PARAM WRITE ERROR",
        {"CIA: SERVO PARAM of the card is SET"}, {"SPS:0x%X:SC%s%s:0x%.2X", "xpcv"}},
    {"GETSC",         kContains, &kServo,      Read(kServoEndA, kServoEndB),  "CIE: PARAM READ ERROR",
        {"CIA: SERVO PARAM is GOT from card"}, {"SPG:0x%X:SC%s%s:0x%.2X", "xpcr"}},
    {"SETMSR",        kContains, &kMotor,      Write(kSilentRange),           "CIE: PARAM WRITE ERROR",
        {"CIA: MSR value of the card is SET"}, {"MPS:0x%X:MSR%s:0x%.2X", "xcv"}},
    {"GETMSR",        kContains, &kMotor,      Read(kSilentRange),            "CIE: PARAM READ ERROR",
        {"CIA: MSR value is GOT from card"}, {"MSR%d:0x%X:0x%.2X", "cxr"}},
    {"STOREMSRS",     kContains, &kMotor,      Tell(kStoreSilentRanges),      "CIE: MSR STORING ERROR",
        {"CIA: MSR values are STORED at address %s", "x"}},
    {"POLLON:",       kContains, &kInput,      Run(SwitchCard<true>),         nullptr, {"CIA: POLLON is OK at address %s", "x"}},
    {"POLLOFF:",      kContains, &kInput,      Run(SwitchCard<false>),        nullptr, {"CIA: POLLOFF is OK at address %s", "x"}},
    {"ENABLEPOLL",    kExact,    kAny,         Run(SwitchAll<true>),          nullptr, {kPollingOn}},
    {"POLLSTATE",     kExact,    kAny,         Run(ShowPollState)},
    {"DISCOVER",      kExact,    kAny,         Run(Discover)},
    {"FORCEDISCOVER", kExact,    kAny,         Run(ForceDiscover)},
    {"EXIT",          kExact,    kAny,         Run(Exit)},
    {"GETLASTINPST:", kContains, &kReporting,  Run(SendLastInputState),       "CIE: INVALID BLOCK NUMBER",
        {"CIA: LAST INPUT STATE SENT ON IO INTERFACE"}},
    {"HELP",          kExact,    kAny,         Run(ShowHelp)},
    {"IOEXAMPLES",    kExact,    kAny,         Run(ShowIoExamples)},
};
// clang-format on

}  // namespace

void CAE_CONTEXT::Reply(const std::string& text) {
  if (!muted) {
    output.ToQueue(Convert_String2QList(text + outSeparator));
  }
}

bool CAE_COMMAND::Matches(const CAE_LINE& line) const {
  switch (match) {
    case CAE_MATCH::kExact:
      return line.Is(keyword);
    case CAE_MATCH::kContains:
      return line.Contains(keyword) && line.ContainsSeparator();
    case CAE_MATCH::kContainsAlone:
      return line.Contains(keyword);
    case CAE_MATCH::kNever:
      break;
  }
  return false;
}

std::span<const CAE_COMMAND> CaeCommands() {
  return kCommands;
}

}  // namespace vorn
