#include "tests/soak/FaultPlan.h"

#include <array>
#include <cstdio>
#include <iterator>
#include <string_view>

namespace soak {

namespace {

struct CARD {
  const char* address;
  const char* type;
};
/// The built-in rack of vornsim.
constexpr CARD kCards[] = {{"0", "servo"},       {"1", "motor"},   {"3", "digital-in"},
                           {"5", "digital-out"}, {"8", "keys"},    {"9", "ir"},
                           {"E", "lcd"},         {"F", "analogue"}};

constexpr std::string_view kErrors[] = {"timeout", "device", "format", "overflow",
                                        "refused", "busy",   "no-card"};
constexpr std::string_view kRequests[] = {"output", "poll", "identify", "handshake", "parameter"};
constexpr std::string_view kLengths[] = {"short", "long", "over", "zero"};

/// The controller comes back at the fault's end at the latest.
constexpr const char* kDeafSeconds = "0.5";

std::string Hex(int byte) {
  char text[3];
  std::snprintf(text, sizeof text, "%02X", static_cast<unsigned int>(byte) & 0xFFU);
  return text;
}

std::string Decimal(int thousandths) {
  char text[32];
  std::snprintf(text, sizeof text, "%d.%03d", thousandths / 1000, thousandths % 1000);
  return text;
}

struct LOST_CLIENTS {
  const char* name;
  bool operatorIsLost;
  bool machineIsLost;
};
constexpr LOST_CLIENTS kLostClients[] = {
    {"the operator's connection is reset", true, false},
    {"the machine's and the monitor's connections are reset", false, true},
    {"all connections are reset", true, true}};

/// So late that the machine is held back at once.
constexpr const char* kSlowBus = "fault late 10 always";
/// What comes of it goes to the machine.
constexpr const char* kNoisyPot = "noise F.0 40";
constexpr const char* kQuietPot = "noise F.0 00";

}  // namespace

struct FLOOD_KIND {
  const char* name;
  FLOOD flood;
  const char* begin;  // for the rack; null: nothing
  const char* end;    // null: nothing
  bool isUnplugged = false;
};

namespace {

constexpr FLOOD_KIND kFloods[] = {
    {"flood, the operator is away", {.away = PARTY::kOperator}, nullptr, nullptr},
    {"flood, the operator does not read", {.stalled = PARTY::kOperator}, nullptr, nullptr},
    {"flood, the monitor is away", {.away = PARTY::kMonitor}, nullptr, nullptr},
    {"flood, the monitor does not read", {.stalled = PARTY::kMonitor}, nullptr, nullptr},
    {"flood, the machine leaves and comes back", {.away = PARTY::kMachine}, kNoisyPot, kQuietPot},
    {"flood, the machine does not read", {.stalled = PARTY::kMachine}, kNoisyPot, kQuietPot},
    {"flood, the adapter is away", {}, "unplug", nullptr, true},
    {"flood, the bus is slow", {}, kSlowBus, nullptr}};
constexpr FLOOD_KIND kWarmUps[] = {
    {"flood, the operator is away, then the monitor does not read",
     {.stalled = PARTY::kMonitor, .away = PARTY::kOperator},
     kNoisyPot,
     kQuietPot},
    {"flood, the machine does not read", {.stalled = PARTY::kMachine}, kNoisyPot, kQuietPot},
    {"flood, the adapter is away, the machine leaves and comes back",
     {.away = PARTY::kMachine},
     "unplug",
     nullptr,
     true}};

}  // namespace

int FAULT_PLAN::Number(int least, int most) {
  // Not the library's distribution: it may differ from one library to the next.
  return least + static_cast<int>(m_random() % static_cast<std::uint64_t>(most - least + 1));
}

template <class ITEMS>
auto FAULT_PLAN::OneOf(const ITEMS& items) {
  return items[static_cast<std::size_t>(Number(0, static_cast<int>(std::size(items)) - 1))];
}

std::string FAULT_PLAN::HexBytes(int most) {
  std::string text;
  for (int i = Number(1, most); i > 0; --i) {
    text += Hex(Number(0, 255));
  }
  return text;
}

bool FAULT_PLAN::IsWarm() const {
  return m_warmUps == std::size(kWarmUps);
}

FAULT FAULT_PLAN::Draw() {
  if (!IsWarm()) {
    return FloodOf(kWarmUps[m_warmUps++]);
  }
  // What happens most often on a real line comes most often.
  using DRAW = FAULT (FAULT_PLAN::*)();
  constexpr DRAW kDraws[] = {
      &FAULT_PLAN::SpoiledAnswers,   &FAULT_PLAN::SpoiledAnswers, &FAULT_PLAN::SpoiledAnswers,
      &FAULT_PLAN::SpoiledAnswers,   &FAULT_PLAN::SpoiledAnswers, &FAULT_PLAN::SpoiledAnswers,
      &FAULT_PLAN::PulledCard,       &FAULT_PLAN::ExchangedCard,  &FAULT_PLAN::ResetController,
      &FAULT_PLAN::UnpluggedAdapter, &FAULT_PLAN::SecondAdapter,  &FAULT_PLAN::UnaskedBytes,
      &FAULT_PLAN::LostClients,      &FAULT_PLAN::Flood,          &FAULT_PLAN::Flood};
  return (this->*OneOf(kDraws))();
}

FAULT FAULT_PLAN::SpoiledAnswers() {
  constexpr int kLongest =
      300;  // more than the daemon's buffer, which one length byte can announce
  std::string kind;
  switch (Number(0, 11)) {
    case 0:
      kind = "no-answer";
      break;
    case 1:
      kind = "late " + std::to_string(Number(1, 400));
      break;
    case 2:
      kind = "cut " + std::to_string(Number(0, 8));
      break;
    case 3:
      kind = "split " + std::to_string(Number(1, 5));
      break;
    case 4:
      kind = "trailing " + HexBytes(kLongest);
      break;
    case 5:
      kind = "leading " + HexBytes(8);
      break;
    case 6:
      kind = "garbage " + HexBytes(64);
      break;
    case 7:
      kind = "length " + std::string(OneOf(kLengths));
      break;
    case 8:
      kind = "length " + Hex(Number(0, 255));
      break;
    case 9:
      kind = "address " + Hex(Number(0, 255));
      break;
    case 10:
      kind = "error " + std::string(OneOf(kErrors));
      break;
    default:
      kind = "duplicate";
      break;
  }
  std::string scope;
  switch (Number(0, 3)) {
    case 0:
      scope = std::string(" on ") + OneOf(kCards).address;
      break;
    case 1:
      scope = " code " + std::string(OneOf(kRequests));
      break;
    default:
      break;
  }
  std::string amount;
  switch (Number(0, 3)) {
    case 0:
      amount = " once";
      break;
    case 1:
      amount = " times " + std::to_string(Number(2, 50));
      break;
    case 2:
      amount = " for " + Decimal(Number(100, 1500));
      break;
    default:
      amount = " always";
      break;
  }
  constexpr std::size_t kShown = 24;
  const std::string shown = kind.size() > kShown ? kind.substr(0, kShown) + "..." : kind;
  return {.name = shown + scope + amount, .begin = {"fault " + kind + scope + amount}, .end = {}};
}

FAULT FAULT_PLAN::PulledCard() {
  const CARD card = OneOf(kCards);
  const std::string address = card.address;
  return {.name = "pull " + address,
          .begin = {"pull " + address},
          .end = {"plug " + address + " " + card.type}};
}

FAULT FAULT_PLAN::ExchangedCard() {
  const CARD card = OneOf(kCards);
  const std::string plug = std::string("plug ") + card.address + " ";
  const std::string other = Number(0, 3) == 0 ? Hex(Number(1, 255)) : OneOf(kCards).type;
  return {.name = plug + other, .begin = {plug + other}, .end = {plug + card.type}};
}

FAULT FAULT_PLAN::ResetController() {
  const std::string reset = std::string("reset ") + kDeafSeconds;
  return {.name = reset, .begin = {reset}, .end = {}};
}

FAULT FAULT_PLAN::UnpluggedAdapter() {
  if (Number(0, 1) == 0) {
    m_adapter = Number(0, 12);
  }
  const std::string replug = "replug " + std::to_string(m_adapter);
  return {.name = "unplug, " + replug, .begin = {"unplug"}, .end = {replug}};
}

FAULT FAULT_PLAN::SecondAdapter() {
  // The right one is looked for beside the other one, before or behind it in the daemon's list.
  m_adapter = Number(1, 12);
  const std::string replug = "replug " + std::to_string(m_adapter);
  const std::string other = "adapter " + std::to_string((m_adapter + Number(1, 12)) % 13);
  const std::string kind = Number(0, 1) == 0 ? " silent" : " chatter";
  return {.name = other + kind + ", " + replug,
          .begin = {"unplug", other + kind, replug},
          .end = {other + " off"}};
}

FAULT FAULT_PLAN::UnaskedBytes() {
  return {.name = "send", .begin = {"send " + HexBytes(255), "send " + HexBytes(255)}, .end = {}};
}

FAULT FAULT_PLAN::LostClients() {
  const LOST_CLIENTS lost = OneOf(kLostClients);
  return {.name = lost.name,
          .begin = {},
          .end = {},
          .dropsOperator = lost.operatorIsLost,
          .dropsMachine = lost.machineIsLost};
}

FAULT FAULT_PLAN::Flood() {
  return FloodOf(OneOf(kFloods));
}

FAULT FAULT_PLAN::FloodOf(const FLOOD_KIND& kind) const {
  FAULT fault{.name = kind.name, .begin = {}, .end = {}, .flood = kind.flood};
  if (kind.begin != nullptr) {
    fault.begin.emplace_back(kind.begin);
  }
  if (kind.end != nullptr) {
    fault.end.emplace_back(kind.end);
  } else if (kind.isUnplugged) {
    fault.end.push_back("replug " + std::to_string(m_adapter));
  }
  return fault;
}

}  // namespace soak
