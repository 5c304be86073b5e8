#include "client/CaeRequest.h"

#include "client/BadValue.h"
#include "client/TypedLine.h"

#include <algorithm>
#include <initializer_list>
#include <utility>

namespace client {

namespace {

// --- the manual ---------------------------------------------------------------------------------

/// What comes behind the first line of a good answer.
enum class BEHIND : std::uint8_t {
  kNothing,
  kOne,        ///< a line for programs
  kAddresses,  ///< one for each of the 16 addresses
  kInputs,     ///< one for each input card
  kText,       ///< whatever there is to show
  kFarewell,   ///< nothing, and no prompt either: the next client gets that
};

/// A command. {x} and its like are places: those of the form are the request's parameters, which
/// the answer repeats; {value}, {card} and so on are read from the answer.
struct CAE_ROW {
  CAE_COMMAND command;
  const char* form;
  const char* answer;  ///< the first line
  BEHIND behind;
  const char* line;     ///< each of those behind it; empty: there are none, or any
  const char* failure;  ///< empty: it cannot fail
  const char* refusal;  ///< for a card of another type; empty: it is for any, or for none
};

constexpr const char* kNo = "";
constexpr const char* kForLcd = "CIE: THIS COMMAND IS VALID FOR LCD CONTROL CARD ONLY";
constexpr const char* kForAnalogue = "CIE: THIS COMMAND IS VALID ON ANALOG INPUT CARD ONLY";
constexpr const char* kForServo = "CIE: THIS COMMAND IS VALID ON SERVO CONTROLLER CARD ONLY";
constexpr const char* kForServoMove = "CIE: THIS COMMAND IS LEGAL ON SERVO CONTROLLER CARD ONLY";
constexpr const char* kForMotor = "CIE: THIS COMMAND IS VALID ON DC MOTOR CONTROLLER CARD ONLY";
constexpr const char* kForInput = "CIE: THIS COMMAND IS VALID ON INPUT CARDS";
constexpr const char* kForAsked = "CIE: THIS COMMAND IS VALID ON ANALOG OR DIGITAL INPUT CARD ONLY";

// clang-format off
constexpr CAE_ROW kRows[] = {
    // command                          form                    carried out: first line                                    lines behind it                                       failed                                     another card
    {CAE_COMMAND::kSpeed,              "SPEED={ppp}",          "CIA: SPEED IS SET to {ppp}%",                              BEHIND::kNothing,   kNo,                              "CIE: Parameter is out of range (1..100)", kNo},
    {CAE_COMMAND::kDisablePolling,     "DISABLEPOLL",          "CIA: GLOBAL POLLING IS DISABLED",                          BEHIND::kNothing,   kNo,                              kNo,                                       kNo},
    {CAE_COMMAND::kDriverVersion,      "DRVVER",               "CIA: DRIVER VERSION {version}",                            BEHIND::kNothing,   kNo,                              kNo,                                       kNo},
    {CAE_COMMAND::kSelfTest,           "LCDSELFTEST:{x}={ss}", "CIA: SELFTEST STATE IS SET TO {ss} at address {x}",        BEHIND::kNothing,   kNo,                              "CIE: STATE WRITE ERROR",                  kForLcd},
    {CAE_COMMAND::kInitialLight,       "LCDINITLIGHT:{x}={ss}","CIA: INITLIGHT STATE IS SET TO {ss} at address {x}",       BEHIND::kNothing,   kNo,                              "CIE: STATE WRITE ERROR",                  kForLcd},
    {CAE_COMMAND::kReboot,             "REBOOT:{x}",           "CIA: Card is REBOOTED",                                    BEHIND::kOne,       "RBT:0x{x}:OK",                   "CIE: BUS WRITE ERROR",                    kNo},
    {CAE_COMMAND::kSetMask,            "SETANMASK:{x}={mm}",   "CIA: Channel MASK of the card is SET",                     BEHIND::kOne,       "AMS:0x{x}:0x{mm}",               "CIE: MASK WRITE ERROR",                   kForAnalogue},
    {CAE_COMMAND::kGetMask,            "GETANMASK:{x}",        "CIA: MASK is GOT from card",                               BEHIND::kOne,       "AMV:0x{x}:0x{value}",            "CIE: MASK READ ERROR",                    kForAnalogue},
    {CAE_COMMAND::kStoreMask,          "STOREANMASK:{x}",      "CIA: MASK IS STORED at address {x}",                       BEHIND::kNothing,   kNo,                              "CIE: MASK STORE ERROR",                   kForAnalogue},
    {CAE_COMMAND::kStorePositions,     "STORESRVPOS:{x}",      "CIA: POSITIONS ARE STORED at address {x}",                 BEHIND::kNothing,   kNo,                              "CIE: POSITION STORING ERROR",             kForServo},
    {CAE_COMMAND::kRecallPositions,    "MOVESTRPOS:{x}",       "CIA: SERVOS ARE MOVED TO STORED POSITIONS at address {x}", BEHIND::kNothing,   kNo,                              "CIE: POSITIONS MOVING ERROR",             kForServoMove},
    {CAE_COMMAND::kSetEnd,             "SETSC{p}{c}:{x}={vv}", "CIA: SERVO PARAM of the card is SET",                      BEHIND::kOne,       "SPS:0x{x}:SC{p}{c}:0x{vv}",      "CIE: PARAM WRITE ERROR",                  kForServo},
    {CAE_COMMAND::kGetEnd,             "GETSC{p}{c}:{x}",      "CIA: SERVO PARAM is GOT from card",                        BEHIND::kOne,       "SPG:0x{x}:SC{p}{c}:0x{value}",   "CIE: PARAM READ ERROR",                   kForServo},
    {CAE_COMMAND::kSetSilentRange,     "SETMSR{c}:{x}={vv}",   "CIA: MSR value of the card is SET",                        BEHIND::kOne,       "MPS:0x{x}:MSR{c}:0x{vv}",        "CIE: PARAM WRITE ERROR",                  kForMotor},
    {CAE_COMMAND::kGetSilentRange,     "GETMSR{c}:{x}",        "CIA: MSR value is GOT from card",                          BEHIND::kOne,       "MSR{c}:0x{x}:0x{value}",         "CIE: PARAM READ ERROR",                   kForMotor},
    {CAE_COMMAND::kStoreSilentRanges,  "STOREMSRS:{x}",        "CIA: MSR values are STORED at address {x}",                BEHIND::kNothing,   kNo,                              "CIE: MSR STORING ERROR",                  kForMotor},
    {CAE_COMMAND::kPollOn,             "POLLON:{x}",           "CIA: POLLON is OK at address {x}",                         BEHIND::kNothing,   kNo,                              kNo,                                       kForInput},
    {CAE_COMMAND::kPollOff,            "POLLOFF:{x}",          "CIA: POLLOFF is OK at address {x}",                        BEHIND::kNothing,   kNo,                              kNo,                                       kForInput},
    {CAE_COMMAND::kEnablePolling,      "ENABLEPOLL",           "CIA: GLOBAL POLLING IS ENABLED",                           BEHIND::kNothing,   kNo,                              kNo,                                       kNo},
    {CAE_COMMAND::kPollState,          "POLLSTATE",            "CIA: GLOBAL POLLING IS {polling}",                         BEHIND::kInputs,    "PTI:0x{card}:{state}",           kNo,                                       kNo},
    {CAE_COMMAND::kListCards,          "DISCOVER",             "DISCOVER LIST:",                                           BEHIND::kAddresses, "DTI:0x{card}:{name}",            kNo,                                       kNo},
    {CAE_COMMAND::kIdentify,           "FORCEDISCOVER",        "FORCED DISCOVER LIST:",                                    BEHIND::kAddresses, "DTI:0x{card}:{name}",            kNo,                                       kNo},
    {CAE_COMMAND::kExit,               "EXIT",                 "VORN: Bye Bye...",                                         BEHIND::kFarewell,  kNo,                              kNo,                                       kNo},
    {CAE_COMMAND::kLastInput,          "GETLASTINPST:{x}={b}", "CIA: LAST INPUT STATE SENT ON IO INTERFACE",               BEHIND::kNothing,   kNo,                              "CIE: INVALID BLOCK NUMBER",               kForAsked},
    {CAE_COMMAND::kHelp,               "HELP",                 "VORN quick HELP:",                                         BEHIND::kText,      kNo,                              kNo,                                       kNo},
    {CAE_COMMAND::kIoExamples,         "IOEXAMPLES",           "BLOCK DEVICE OUTPUT EXAMPLES:",                            BEHIND::kText,      kNo,                              kNo,                                       kNo},
};

/// What stands in a place.
enum class CONTENT : std::uint8_t { kCharacter, kDigit, kByte, kRest };
struct PLACE {
  const char* name;
  CONTENT content;
};
constexpr PLACE kPlaces[] = {
    {"x",       CONTENT::kDigit},      // a card's address
    {"b",       CONTENT::kDigit},      // a block
    {"c",       CONTENT::kDigit},      // a channel
    {"p",       CONTENT::kCharacter},  // an end position, A or B
    {"vv",      CONTENT::kByte},
    {"mm",      CONTENT::kByte},
    {"ss",      CONTENT::kRest},       // ON or OFF
    {"ppp",     CONTENT::kRest},       // decimal
    {"value",   CONTENT::kByte},       // of a card's parameter
    {"card",    CONTENT::kDigit},      // an address in a list
    {"name",    CONTENT::kRest},       // of a card's type
    {"state",   CONTENT::kRest},       // ON or OFF
    {"polling", CONTENT::kRest},       // ENABLED or DISABLED
    {"version", CONTENT::kRest},
};
// clang-format on

constexpr std::string_view kGood = "CIA: ";
constexpr std::string_view kBad = "CIE: ";
constexpr std::string_view kUnknownCommand = "CIE: UNKNOWN COMMAND";
constexpr std::string_view kIllegalCommand = "COE:Illegal command -> ";
constexpr std::string_view kFault = "COE:Parser exception -> ";

constexpr std::size_t kMostLines = 128;     // HELP has 69
constexpr std::size_t kLongestKept = 4096;  // characters of a line
constexpr int kLargestInputBlock = 5;

/// Null for kTyped, which may be any of them.
const CAE_ROW* FindRow(CAE_COMMAND command) {
  for (const CAE_ROW& row : kRows) {
    if (row.command == command) {
      return &row;
    }
  }
  return nullptr;
}

// --- places -------------------------------------------------------------------------------------

/// What stands in the places, by their names.
using CONTENTS = std::map<std::string, std::string, std::less<>>;

/// Cuts a pattern's next piece off: the text up to a place, or a place, whose name is returned.
std::string_view NextPlace(std::string_view& pattern, std::string_view& text) {
  const std::size_t open = pattern.find('{');
  text = pattern.substr(0, open);
  if (open == std::string_view::npos) {
    pattern = {};
    return {};
  }
  const std::size_t close = pattern.find('}', open);
  const std::string_view name = pattern.substr(open + 1, close - open - 1);
  pattern.remove_prefix(close + 1);
  return name;
}

std::string Fill(std::string_view pattern, const CONTENTS& contents) {
  std::string line;
  while (!pattern.empty()) {
    std::string_view text;
    const std::string_view name = NextPlace(pattern, text);
    line += text;
    if (const auto content = contents.find(name); content != contents.end()) {
      line += content->second;
    }
  }
  return line;
}

/// How many characters of the text belong into the place; 0: they do not fit.
std::size_t SizeIn(std::string_view name, std::string_view text) {
  const auto isDigit = [&](std::size_t i) {
    return i < text.size() && text[i] < 'a' && ReadDigit(text[i]) >= 0;  // upper case
  };
  for (const PLACE& place : kPlaces) {
    if (place.name != name) {
      continue;
    }
    switch (place.content) {
      case CONTENT::kCharacter:
        return text.empty() ? 0 : 1;
      case CONTENT::kDigit:
        return isDigit(0) ? 1 : 0;
      case CONTENT::kByte:
        return isDigit(0) && isDigit(1) ? 2 : 0;
      case CONTENT::kRest:
        return text.size();
    }
  }
  return 0;
}

/// Whether a line is of that pattern. Places whose contents are known must have these; the others
/// are read.
bool Fits(std::string_view pattern, std::string_view line, CONTENTS& contents) {
  while (!pattern.empty()) {
    std::string_view text;
    const std::string_view name = NextPlace(pattern, text);
    if (!line.starts_with(text)) {
      return false;
    }
    line.remove_prefix(text.size());
    if (name.empty()) {
      continue;
    }
    const auto known = contents.find(name);
    const std::size_t size = known == contents.end()           ? SizeIn(name, line)
                             : line.starts_with(known->second) ? known->second.size()
                                                               : 0;
    if (size == 0) {
      return false;
    }
    contents.emplace(name, line.substr(0, size));
    line.remove_prefix(size);
  }
  return line.empty();
}

std::uint8_t ByteOf(const CONTENTS& contents, std::string_view name) {
  std::uint8_t value = 0;
  for (const char digit : contents.find(name)->second) {
    value = static_cast<std::uint8_t>(value * 16 + ReadDigit(digit));
  }
  return value;
}

// --- answers ------------------------------------------------------------------------------------

using VALUE = decltype(CAE_RESULT::value);
using LINES = std::vector<std::string>;

/// The contents of each line behind the first; nothing where one does not fit, or the number of
/// them.
std::optional<std::vector<CONTENTS>> ReadBehind(const CAE_ROW& row, const LINES& lines,
                                                const CONTENTS& parameters, std::size_t least,
                                                std::size_t most) {
  const std::size_t count = lines.size() - 1;
  if (count < least || count > most) {
    return std::nullopt;
  }
  std::vector<CONTENTS> all;
  for (std::size_t i = 1; i < lines.size(); ++i) {
    all.push_back(parameters);
    if (!Fits(row.line, lines[i], all.back())) {
      return std::nullopt;
    }
  }
  return all;
}

std::optional<VALUE> ReadCardList(const std::vector<CONTENTS>& entries) {
  CARD_LIST cards{};
  std::array<bool, kAddresses> isListed{};
  for (const CONTENTS& entry : entries) {
    const std::size_t address = ByteOf(entry, "card");
    const CARD_TYPE* type = FindTypeByListedName(entry.find("name")->second);
    cards.at(address) = type == nullptr ? CARD_KIND::kUnidentified : type->kind;
    isListed.at(address) = true;
  }
  // Sixteen of them, so one that comes twice leaves another out.
  if (std::find(isListed.begin(), isListed.end(), false) != isListed.end()) {
    return std::nullopt;
  }
  return cards;
}

/// True, false or neither.
std::optional<bool> ReadSwitch(const CONTENTS& contents, std::string_view name, const char* on,
                               const char* off) {
  const std::string& word = contents.find(name)->second;
  if (word != on && word != off) {
    return std::nullopt;
  }
  return word == on;
}

std::optional<VALUE> ReadPollState(const CONTENTS& first, const std::vector<CONTENTS>& entries) {
  POLL_STATE state;
  const std::optional<bool> enabled = ReadSwitch(first, "polling", "ENABLED", "DISABLED");
  if (!enabled) {
    return std::nullopt;
  }
  state.enabled = *enabled;
  for (const CONTENTS& entry : entries) {
    const std::optional<bool> on = ReadSwitch(entry, "state", "ON", "OFF");
    if (!on) {
      return std::nullopt;
    }
    state.cards[ByteOf(entry, "card")] = *on;
  }
  return state;
}

VALUE ValueIn(const CONTENTS& contents) {
  if (const auto version = contents.find("version"); version != contents.end()) {
    return version->second;
  }
  if (contents.contains("value")) {
    return ByteOf(contents, "value");
  }
  return {};
}

/// What the lines say as the answer that the command was carried out, with these parameters;
/// nothing where they are none.
std::optional<VALUE> ReadGood(const CAE_ROW& row, const LINES& lines, const CONTENTS& parameters) {
  CONTENTS first = parameters;
  if (!Fits(row.answer, lines.front(), first)) {
    return std::nullopt;
  }
  std::size_t least = 0;
  std::size_t most = 0;
  switch (row.behind) {
    case BEHIND::kText:
      return VALUE{};
    case BEHIND::kNothing:
    case BEHIND::kFarewell:
      break;
    case BEHIND::kOne:
      least = most = 1;
      break;
    case BEHIND::kAddresses:
      least = most = kAddresses;
      break;
    case BEHIND::kInputs:
      most = kAddresses;
      break;
  }
  const auto behind = ReadBehind(row, lines, parameters, least, most);
  if (!behind) {
    return std::nullopt;
  }
  if (row.behind == BEHIND::kAddresses) {
    return ReadCardList(*behind);
  }
  if (row.behind == BEHIND::kInputs) {
    return ReadPollState(first, *behind);
  }
  return ValueIn(behind->empty() ? first : behind->front());
}

bool IsBad(const CAE_ROW& row, const LINES& lines) {
  const std::string& line = lines.front();
  return lines.size() == 1 && line.starts_with(kBad) &&
         (line == row.failure || line == row.refusal || line.starts_with(kUnknownCommand));
}

bool IsFarewell(std::string_view line) {
  return line == FindRow(CAE_COMMAND::kExit)->answer;
}

// --- requests -----------------------------------------------------------------------------------

CAE_REQUEST Request(CAE_COMMAND command, const CONTENTS& parameters = {}) {
  return {command, Fill(FindRow(command)->form, parameters)};
}

CAE_REQUEST CardRequest(CAE_COMMAND command, int address, CONTENTS parameters = {}) {
  parameters["x"] = AddressDigit(address);
  return Request(command, parameters);
}

struct PARAMETER_ROW {
  PARAMETER parameter;
  CAE_COMMAND set;
  CAE_COMMAND get;  ///< kTyped: there is none
  const char* end;  ///< of SETSC and GETSC
};
constexpr PARAMETER_ROW kParameterRows[] = {
    {PARAMETER::kMask, CAE_COMMAND::kSetMask, CAE_COMMAND::kGetMask, ""},
    {PARAMETER::kEndA, CAE_COMMAND::kSetEnd, CAE_COMMAND::kGetEnd, "A"},
    {PARAMETER::kEndB, CAE_COMMAND::kSetEnd, CAE_COMMAND::kGetEnd, "B"},
    {PARAMETER::kSilentRange, CAE_COMMAND::kSetSilentRange, CAE_COMMAND::kGetSilentRange, ""},
    {PARAMETER::kSelfTest, CAE_COMMAND::kSelfTest, CAE_COMMAND::kTyped, ""},
    {PARAMETER::kInitialLight, CAE_COMMAND::kInitialLight, CAE_COMMAND::kTyped, ""},
};

const PARAMETER_ROW& CommandsOf(PARAMETER parameter) {
  const auto* const row =
      std::find_if(std::begin(kParameterRows), std::end(kParameterRows),
                   [&](const PARAMETER_ROW& each) { return each.parameter == parameter; });
  if (row == std::end(kParameterRows)) {
    throw BAD_VALUE("no card has such a parameter");
  }
  return *row;
}

/// The channel and the end position, as the forms want them.
CONTENTS ChannelOf(PARAMETER parameter, int channel) {
  const CARD_PARAMETER& row = RowOf(parameter);
  if (channel < 0 || channel >= row.channels) {
    const std::string number = "'" + std::to_string(channel) + "' is no channel of ";
    if (row.channels == 1) {
      throw BAD_VALUE(number + row.name + ": a card has it once, as 0");
    }
    throw BAD_VALUE(number + "a " + TypeOf(row.kind).word + " card: 0 to " +
                    std::to_string(row.channels - 1));
  }
  return {{"c", std::to_string(channel)}, {"p", CommandsOf(parameter).end}};
}

}  // namespace

CAE_REQUEST SetSpeed(int percent) {
  if (percent < 1 || percent > 100) {
    throw BAD_VALUE("speed " + std::to_string(percent) + ": 1 to 100 percent");
  }
  return Request(CAE_COMMAND::kSpeed, {{"ppp", std::to_string(percent)}});
}

CAE_REQUEST EnablePolling(bool on) {
  return Request(on ? CAE_COMMAND::kEnablePolling : CAE_COMMAND::kDisablePolling);
}

CAE_REQUEST PollCard(int address, bool on) {
  return CardRequest(on ? CAE_COMMAND::kPollOn : CAE_COMMAND::kPollOff, address);
}

CAE_REQUEST AskPollState() {
  return Request(CAE_COMMAND::kPollState);
}

CAE_REQUEST AskVersion() {
  return Request(CAE_COMMAND::kDriverVersion);
}

CAE_REQUEST ListCards() {
  return Request(CAE_COMMAND::kListCards);
}

CAE_REQUEST IdentifyCards() {
  return Request(CAE_COMMAND::kIdentify);
}

CAE_REQUEST Reboot(int address) {
  return CardRequest(CAE_COMMAND::kReboot, address);
}

CAE_REQUEST SetParameter(int address, PARAMETER parameter, int channel, std::uint8_t value) {
  const CARD_PARAMETER& row = RowOf(parameter);
  CONTENTS parameters = ChannelOf(parameter, channel);
  if (value > row.largest) {
    throw BAD_VALUE(std::string(row.name) + " " + HexByte(value) + ": 00 to " +
                    HexByte(row.largest));
  }
  parameters["vv"] = parameters["mm"] = HexByte(value);
  parameters["ss"] = value == 0 ? "OFF" : "ON";
  return CardRequest(CommandsOf(parameter).set, address, std::move(parameters));
}

CAE_REQUEST AskParameter(int address, PARAMETER parameter, int channel) {
  const CARD_PARAMETER& row = RowOf(parameter);
  if (!row.canBeRead) {
    throw BAD_VALUE(std::string(row.name) + ": can be set only, no card tells it");
  }
  return CardRequest(CommandsOf(parameter).get, address, ChannelOf(parameter, channel));
}

CAE_REQUEST StoreMask(int address) {
  return CardRequest(CAE_COMMAND::kStoreMask, address);
}

CAE_REQUEST StorePositions(int address) {
  return CardRequest(CAE_COMMAND::kStorePositions, address);
}

CAE_REQUEST RecallPositions(int address) {
  return CardRequest(CAE_COMMAND::kRecallPositions, address);
}

CAE_REQUEST StoreSilentRanges(int address) {
  return CardRequest(CAE_COMMAND::kStoreSilentRanges, address);
}

CAE_REQUEST AskLastInput(int address, int block) {
  if (block < 0 || block > kLargestInputBlock) {
    throw BAD_VALUE("block " + std::to_string(block) + ": an input card has 0 to 5");
  }
  return CardRequest(CAE_COMMAND::kLastInput, address, {{"b", std::to_string(block)}});
}

CAE_REQUEST AskHelp() {
  return Request(CAE_COMMAND::kHelp);
}

CAE_REQUEST AskIoExamples() {
  return Request(CAE_COMMAND::kIoExamples);
}

CAE_REQUEST EndCae() {
  return Request(CAE_COMMAND::kExit);
}

CAE_REQUEST TypedCae(std::string_view line) {
  CheckOneLine(line, kLongestCaeLine);
  return {CAE_COMMAND::kTyped, std::string(line)};
}

// --- results ------------------------------------------------------------------------------------

std::string CAE_RESULT::Text() const {
  if (lines.empty()) {
    return {};
  }
  std::string text = lines.front();
  if (text.starts_with(kGood) || text.starts_with(kBad)) {
    text.erase(0, kGood.size());
  } else {
    for (std::size_t i = 1; i < lines.size(); ++i) {
      text += "\n" + lines[i];
    }
  }
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

CAE_ANSWER::CAE_ANSWER(CAE_REQUEST request) : m_request(std::move(request)) {
}

bool CAE_ANSWER::Take(std::string_view line) {
  if (m_isComplete) {
    return true;
  }
  LINES& lines = m_result.lines;
  if (line != kPrompt) {
    if (lines.size() < kMostLines) {
      lines.emplace_back(line.substr(0, kLongestKept));
    }
    if (lines.size() > 1 || !IsFarewell(line)) {
      return false;
    }
  }
  m_isComplete = !lines.empty() && Judge();
  if (!m_isComplete) {
    lines.clear();
  }
  return m_isComplete;
}

bool CAE_ANSWER::Judge() {
  const LINES& lines = m_result.lines;
  const CAE_ROW* const row = FindRow(m_request.command);
  if (row == nullptr) {
    m_result.outcome = lines.front().starts_with(kBad) ? OUTCOME::kRefused : OUTCOME::kDone;
    return !ReadRefusal(lines.front());
  }
  if (IsBad(*row, lines)) {
    m_result.outcome = OUTCOME::kRefused;
    return true;
  }
  CONTENTS parameters;
  if (!Fits(row->form, m_request.line, parameters)) {
    return false;
  }
  std::optional<VALUE> value = ReadGood(*row, lines, parameters);
  if (!value) {
    return false;
  }
  m_result.outcome = OUTCOME::kDone;
  m_result.value = std::move(*value);
  return true;
}

std::optional<REFUSAL> ReadRefusal(std::string_view line) {
  for (const auto& [report, isFault] : {std::pair(kIllegalCommand, false), {kFault, true}}) {
    if (line.starts_with(report)) {
      return REFUSAL{std::string(line.substr(report.size())), isFault};
    }
  }
  return std::nullopt;
}

}  // namespace client
