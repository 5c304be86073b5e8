#include "vorn/master/CAE_INTERPRETER.h"

#include "vorn/base/Values.h"
#include "vorn/master/Farewell.h"
#include "vorn/master/HelpTexts.h"
#include "vorn/master/TextParts.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <span>
#include <utility>
#include <vector>

namespace {

constexpr char kPrompt[] = ">";
constexpr char kIdentificationRequest = '0';
constexpr char kParameterRequest = 'P';
constexpr std::uint8_t kAcknowledged = 'Q';
/// Where a card's acknowledgement carries the value that was read.
constexpr std::size_t kValueReadByte = 3;

constexpr int kAcknowledgementWaitS = 1;
constexpr int kDrainWaitS = 1;
constexpr int kIdentificationWaitS = 1;

/// Cards whose last input state can be sent again, and the blocks that they have.
struct REPORTING_CARD {
  CARD_CODE type;
  std::uint8_t blocks;
};
constexpr REPORTING_CARD kReportingCards[] = {{kDigitalInput, 2}, {kAnalogueInput, 6}};

struct ON_OFF {
  const char* typed;  ///< the first two characters
  const char* echoed;
  std::uint8_t state;
};
constexpr ON_OFF kOnOff[] = {{"OF", "OFF", 0x00}, {"ON", "ON", 0xFF}};

/// A card's request bytes, the first of them where they write, read or act.
namespace request {
constexpr std::uint8_t kWrite = 0x01;
constexpr std::uint8_t kRead = 0x40;

constexpr std::uint8_t kReboot = 0xAB;
constexpr std::uint8_t kLcdSelfTest = 0x01;
constexpr std::uint8_t kLcdInitLight = 0x02;
constexpr std::uint8_t kAnalogueMask = 0x01;
constexpr std::uint8_t kStoreAnalogueMask = 0x02;
constexpr std::uint8_t kStoreServoPositions = 0x74;
constexpr std::uint8_t kMoveToStoredPositions = 0x3F;
constexpr std::uint8_t kStoreSilentRanges = 0xCD;
// These count on by channel.
constexpr std::uint8_t kSetEndPositionA = 0xC0;
constexpr std::uint8_t kSetEndPositionB = 0xD0;
constexpr std::uint8_t kGetEndPositionA = 0x21;
constexpr std::uint8_t kGetEndPositionB = 0x27;
constexpr std::uint8_t kSetSilentRange = 0xC0;
constexpr std::uint8_t kGetSilentRange = 0x01;
}  // namespace request

std::uint8_t OfChannel(std::uint8_t first, std::uint8_t channel) {
  return static_cast<std::uint8_t>(first + channel);
}

}  // namespace

CAE_INTERPRETER::CAE_INTERPRETER(const INTERFACE_DESCRIPTOR& descriptor, VOQUEUE& output,
                                 QUEUE_REQUEST queueRequest, VOQUEUE& inputLines, CARD_TABLE& cards,
                                 DAEMON_CONTROL& daemon)
    : m_inpSeparator(descriptor.inpSeparator),
      m_outSeparator(descriptor.outSeparator),
      m_output(output),
      m_queueRequest(std::move(queueRequest)),
      m_inputLines(inputLines),
      m_cards(cards),
      m_daemon(daemon) {
}

void CAE_INTERPRETER::InterpretCaeCommand(const std::string& text) {
  const CAE_LINE line(text, m_inpSeparator);
  bool handled = false;
  for (const CAE_COMMAND& command : CaeCommands()) {
    if (command.run != nullptr && command.Matches(line)) {
      handled = true;
      if (!RefusesCard(line, command)) {
        (this->*command.run)(line, command);
      }
    }
  }
  // The unknown-command reply carries its prompt in the same message.
  Reply(handled ? kPrompt : "CIE: UNKNOWN COMMAND " + m_outSeparator + kPrompt);
}

// --- what the commands share --------------------------------------------------------------------

void CAE_INTERPRETER::Reply(const std::string& text) {
  if (!m_muted) {
    m_output.ToQueue(Convert_String2QList(text + m_outSeparator));
  }
}

/// Answers, and is true, when the command asks for one card type and the addressed card has
/// another.
bool CAE_INTERPRETER::RefusesCard(const CAE_LINE& line, const CAE_COMMAND& command) {
  if (command.cardType == kAnyCard) {
    return false;
  }
  const bool wrong = m_cards.With(
      line.Address(), [&](const PERIFCARD& card) { return card.typeCode != command.cardType; });
  if (wrong) {
    Reply(command.wrongCardReply);
  }
  return wrong;
}

/// Sends the request and waits; false, and answered, when the card did not acknowledge in time.
bool CAE_INTERPRETER::RequestOfCard(const CAE_LINE& line, const CAE_COMMAND& command,
                                    std::initializer_list<std::uint8_t> request) {
  const std::uint8_t address = line.Address();
  m_cards.With(address, [](PERIFCARD& card) { card.queryBytes.fill(0); });
  QList body = {kParameterRequest, static_cast<char>(address)};
  body.insert(body.end(), request.begin(), request.end());
  m_queueRequest(std::move(body));
  m_daemon.PauseSeconds(kAcknowledgementWaitS);
  const bool accepted = m_cards.With(
      address, [](const PERIFCARD& card) { return card.queryBytes[0] == kAcknowledged; });
  if (!accepted) {
    Reply(command.failureReply);
  }
  return accepted;
}

std::uint8_t CAE_INTERPRETER::ValueRead(const CAE_LINE& line) {
  return m_cards.With(line.Address(),
                      [](const PERIFCARD& card) { return card.queryBytes[kValueReadByte]; });
}

// --- the daemon ---------------------------------------------------------------------------------

void CAE_INTERPRETER::SetSpeed(const CAE_LINE& line, const CAE_COMMAND&) {
  constexpr std::int32_t kSlowest = 1;
  constexpr std::int32_t kFastest = 100;
  const std::int32_t percent = ATOL(line.NumberText());
  if (percent < kSlowest || percent > kFastest) {
    Reply("CIE: Parameter is out of range (1..100)");
    return;
  }
  m_daemon.SetThreadDelays(SpeedToDelayUs(percent));
  Reply("CIA: SPEED IS SET to " + line.NumberText() + "%");
}

void CAE_INTERPRETER::ShowVersion(const CAE_LINE&, const CAE_COMMAND&) {
  Reply(std::string("CIA: DRIVER VERSION ") + kDriverVersion);
}

void CAE_INTERPRETER::Exit(const CAE_LINE&, const CAE_COMMAND&) {
  Reply(kFarewell);
  m_daemon.PauseSeconds(kFarewellWaitS);
  m_daemon.CloseCaeConnection();
}

void CAE_INTERPRETER::ShowHelp(const CAE_LINE&, const CAE_COMMAND&) {
  for (const char* const text : QuickHelp()) {
    Reply(text);
  }
}

void CAE_INTERPRETER::ShowIoExamples(const CAE_LINE&, const CAE_COMMAND&) {
  for (const char* const text : IoExamples()) {
    Reply(text);
  }
}

// --- any card -----------------------------------------------------------------------------------

void CAE_INTERPRETER::Reboot(const CAE_LINE& line, const CAE_COMMAND& command) {
  if (RequestOfCard(line, command, {request::kWrite, request::kReboot})) {
    Reply("CIA: Card is REBOOTED");
    Reply(FormatText("RBT:0x%X:OK", line.Address()));
  }
}

// --- LCD controller -----------------------------------------------------------------------------

void CAE_INTERPRETER::SetLcdSelfTest(const CAE_LINE& line, const CAE_COMMAND& command) {
  SetLcdState(line, command, request::kLcdSelfTest, m_selfTestState, "SELFTEST");
}

void CAE_INTERPRETER::SetLcdInitLight(const CAE_LINE& line, const CAE_COMMAND& command) {
  SetLcdState(line, command, request::kLcdInitLight, m_initLightState, "INITLIGHT");
}

/// A text that is neither ON nor OFF leaves the state of the previous such command, and is echoed.
void CAE_INTERPRETER::SetLcdState(const CAE_LINE& line, const CAE_COMMAND& command,
                                  std::uint8_t parameter, std::uint8_t& state,
                                  const char* parameterName) {
  std::string echoed = line.StateText();
  const auto* const known = std::find_if(std::begin(kOnOff), std::end(kOnOff),
                                         [&](const ON_OFF& row) { return echoed == row.typed; });
  if (known != std::end(kOnOff)) {
    state = known->state;
    echoed = known->echoed;
  }
  if (RequestOfCard(line, command, {request::kWrite, parameter, state})) {
    Reply(std::string("CIA: ") + parameterName + " STATE IS SET TO " + echoed + " at address " +
          line.AddressText());
  }
}

// --- analogue input -----------------------------------------------------------------------------

void CAE_INTERPRETER::SetAnalogueMask(const CAE_LINE& line, const CAE_COMMAND& command) {
  if (RequestOfCard(line, command, {request::kWrite, request::kAnalogueMask, line.Value()})) {
    Reply("CIA: Channel MASK of the card is SET");
    Reply(FormatText("AMS:0x%X:0x%.2X", line.Address(), line.Value()));
  }
}

void CAE_INTERPRETER::GetAnalogueMask(const CAE_LINE& line, const CAE_COMMAND& command) {
  if (RequestOfCard(line, command, {request::kRead, request::kAnalogueMask})) {
    Reply("CIA: MASK is GOT from card");
    Reply(FormatText("AMV:0x%X:0x%.2X", line.Address(), ValueRead(line)));
  }
}

void CAE_INTERPRETER::StoreAnalogueMask(const CAE_LINE& line, const CAE_COMMAND& command) {
  if (RequestOfCard(line, command, {request::kWrite, request::kStoreAnalogueMask})) {
    Reply("CIA: MASK IS STORED at address " + line.AddressText());
  }
}

// --- RC servo controller ------------------------------------------------------------------------

void CAE_INTERPRETER::StoreServoPositions(const CAE_LINE& line, const CAE_COMMAND& command) {
  if (RequestOfCard(line, command, {request::kWrite, request::kStoreServoPositions})) {
    Reply("CIA: POSITIONS ARE STORED at address " + line.AddressText());
  }
}

void CAE_INTERPRETER::MoveToStoredPositions(const CAE_LINE& line, const CAE_COMMAND& command) {
  if (RequestOfCard(line, command, {request::kWrite, request::kMoveToStoredPositions})) {
    Reply("CIA: SERVOS ARE MOVED TO STORED POSITIONS at address " + line.AddressText());
  }
}

void CAE_INTERPRETER::SetServoParameter(const CAE_LINE& line, const CAE_COMMAND& command) {
  const std::uint8_t first =
      line.EndPositionText() == "B" ? request::kSetEndPositionB : request::kSetEndPositionA;
  if (RequestOfCard(line, command,
                    {request::kWrite, OfChannel(first, line.Channel()), line.Value()})) {
    Reply("CIA: SERVO PARAM of the card is SET");
    Reply(FormatText("SPS:0x%X:SC%s%s:0x%.2X", line.Address(), line.EndPositionText().c_str(),
                     line.ChannelText().c_str(), line.Value()));
  }
}

void CAE_INTERPRETER::GetServoParameter(const CAE_LINE& line, const CAE_COMMAND& command) {
  const std::uint8_t first =
      line.EndPositionText() == "B" ? request::kGetEndPositionB : request::kGetEndPositionA;
  if (RequestOfCard(line, command, {request::kRead, OfChannel(first, line.Channel())})) {
    Reply("CIA: SERVO PARAM is GOT from card");
    Reply(FormatText("SPG:0x%X:SC%s%s:0x%.2X", line.Address(), line.EndPositionText().c_str(),
                     line.ChannelText().c_str(), ValueRead(line)));
  }
}

// --- DC motor controller ------------------------------------------------------------------------

void CAE_INTERPRETER::SetSilentRange(const CAE_LINE& line, const CAE_COMMAND& command) {
  if (RequestOfCard(
          line, command,
          {request::kWrite, OfChannel(request::kSetSilentRange, line.Channel()), line.Value()})) {
    Reply("CIA: MSR value of the card is SET");
    Reply(FormatText("MPS:0x%X:MSR%s:0x%.2X", line.Address(), line.ChannelText().c_str(),
                     line.Value()));
  }
}

void CAE_INTERPRETER::GetSilentRange(const CAE_LINE& line, const CAE_COMMAND& command) {
  if (RequestOfCard(line, command,
                    {request::kRead, OfChannel(request::kGetSilentRange, line.Channel())})) {
    Reply("CIA: MSR value is GOT from card");
    Reply(FormatText("MSR%d:0x%X:0x%.2X", line.Channel(), line.Address(), ValueRead(line)));
  }
}

void CAE_INTERPRETER::StoreSilentRanges(const CAE_LINE& line, const CAE_COMMAND& command) {
  if (RequestOfCard(line, command, {request::kWrite, request::kStoreSilentRanges})) {
    Reply("CIA: MSR values are STORED at address " + line.AddressText());
  }
}

// --- polling ------------------------------------------------------------------------------------

void CAE_INTERPRETER::SwitchPollOn(const CAE_LINE& line, const CAE_COMMAND& command) {
  SwitchPolling(line, command, true);
}

void CAE_INTERPRETER::SwitchPollOff(const CAE_LINE& line, const CAE_COMMAND& command) {
  SwitchPolling(line, command, false);
}

void CAE_INTERPRETER::SwitchPolling(const CAE_LINE& line, const CAE_COMMAND& command, bool on) {
  const bool switched = m_cards.With(line.Address(), [&](PERIFCARD& card) {
    if (card.stateWord != kInputCard) {
      return false;
    }
    card.pollFlag = on ? 1 : 0;
    return true;
  });
  Reply(switched ? std::string("CIA: ") + (on ? "POLLON" : "POLLOFF") + " is OK at address " +
                       line.AddressText()
                 : command.wrongCardReply);
}

void CAE_INTERPRETER::EnablePoll(const CAE_LINE&, const CAE_COMMAND&) {
  m_daemon.SetPolling(true);
  ReplyPollingState();
}

void CAE_INTERPRETER::DisablePoll(const CAE_LINE&, const CAE_COMMAND&) {
  m_daemon.SetPolling(false);
  ReplyPollingState();
}

void CAE_INTERPRETER::ReplyPollingState() {
  Reply(m_daemon.Polling() ? "CIA: GLOBAL POLLING IS ENABLED" : "CIA: GLOBAL POLLING IS DISABLED");
}

void CAE_INTERPRETER::ShowPollState(const CAE_LINE&, const CAE_COMMAND&) {
  ReplyPollingState();
  for (std::uint8_t address = 0; address < kBusAddresses; ++address) {
    struct STATE {
      bool input;
      bool polled;
    };
    const STATE state = m_cards.With(address, [](const PERIFCARD& card) {
      return STATE{card.stateWord == kInputCard, card.pollFlag != 0};
    });
    if (state.input) {
      Reply(FormatText("PTI:0x%X:%s", address, state.polled ? "ON" : "OFF"));
    }
  }
}

void CAE_INTERPRETER::SendLastInputState(const CAE_LINE& line, const CAE_COMMAND& command) {
  const std::uint8_t block = line.Block();
  struct STATE {
    std::uint8_t typeCode;
    std::uint8_t value;
  };
  const STATE state = m_cards.With(line.Address(), [&](const PERIFCARD& card) {
    return STATE{card.typeCode, card.values[block]};
  });
  const auto* const kind =
      std::find_if(std::begin(kReportingCards), std::end(kReportingCards),
                   [&](const REPORTING_CARD& row) { return row.type == state.typeCode; });
  if (kind == std::end(kReportingCards)) {
    Reply(command.wrongCardReply);
  } else if (block >= kind->blocks) {
    Reply("CIE: INVALID BLOCK NUMBER");
  } else {
    m_inputLines.ToQueue(Convert_String2QList(FormatInputLine(line.Address(), block, state.value)));
    Reply("CIA: LAST INPUT STATE SENT ON IO INTERFACE");
  }
}

// --- discovery ----------------------------------------------------------------------------------

void CAE_INTERPRETER::Discover(const CAE_LINE&, const CAE_COMMAND&) {
  ListCards("DISCOVER LIST:");
}

void CAE_INTERPRETER::ForceDiscover(const CAE_LINE&, const CAE_COMMAND&) {
  const bool polling = m_daemon.Polling();
  m_daemon.SetPolling(false);
  m_daemon.PauseSeconds(kDrainWaitS);
  for (std::size_t address = 0; address < kBusAddresses; ++address) {
    m_cards.With(address, [](PERIFCARD& card) { card.clearPerifCard(); });
  }
  m_queueRequest({kIdentificationRequest});
  m_daemon.PauseSeconds(kIdentificationWaitS);
  ListCards("FORCED DISCOVER LIST:");
  m_daemon.SetPolling(polling);
}

void CAE_INTERPRETER::ListCards(const char* title) {
  Reply(title);
  for (std::uint8_t address = 0; address < kBusAddresses; ++address) {
    const std::string name =
        m_cards.With(address, [](const PERIFCARD& card) { return std::string(card.name.data()); });
    Reply(FormatText("DTI:0x%X:%s", address, name.c_str()));
  }
}
