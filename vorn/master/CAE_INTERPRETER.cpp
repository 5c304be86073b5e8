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

const bus::PARAMETER& ServoEnd(const CAE_LINE& line) {
  return line.EndPositionText() == "B" ? bus::parameter::kServoEndB : bus::parameter::kServoEndA;
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
                                    QList request) {
  const std::uint8_t address = line.Address();
  m_cards.With(address, [](PERIFCARD& card) { card.queryBytes.fill(0); });
  m_queueRequest(std::move(request));
  m_daemon.PauseSeconds(kAcknowledgementWaitS);
  const bool accepted = m_cards.With(
      address, [](const PERIFCARD& card) { return card.queryBytes[0] == bus::reply::kQueryData; });
  if (!accepted) {
    Reply(command.failureReply);
  }
  return accepted;
}

bool CAE_INTERPRETER::Write(const CAE_LINE& line, const CAE_COMMAND& command,
                            const bus::PARAMETER& parameter, std::uint8_t channel,
                            std::uint8_t value) {
  return RequestOfCard(line, command, bus::WriteRequest(line.Address(), parameter, channel, value));
}

bool CAE_INTERPRETER::Read(const CAE_LINE& line, const CAE_COMMAND& command,
                           const bus::PARAMETER& parameter, std::uint8_t channel) {
  return RequestOfCard(line, command, bus::ReadRequest(line.Address(), parameter, channel));
}

bool CAE_INTERPRETER::Do(const CAE_LINE& line, const CAE_COMMAND& command, std::uint8_t action) {
  return RequestOfCard(line, command, bus::ActionRequest(line.Address(), action));
}

std::uint8_t CAE_INTERPRETER::ValueRead(const CAE_LINE& line) {
  return m_cards.With(line.Address(),
                      [](const PERIFCARD& card) { return card.queryBytes[bus::kReplyValueAt]; });
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
  if (Do(line, command, bus::action::kReboot)) {
    Reply("CIA: Card is REBOOTED");
    Reply(FormatText("RBT:0x%X:OK", line.Address()));
  }
}

// --- LCD controller -----------------------------------------------------------------------------

void CAE_INTERPRETER::SetLcdSelfTest(const CAE_LINE& line, const CAE_COMMAND& command) {
  SetLcdState(line, command, bus::parameter::kLcdSelfTest, m_selfTestState, "SELFTEST");
}

void CAE_INTERPRETER::SetLcdInitLight(const CAE_LINE& line, const CAE_COMMAND& command) {
  SetLcdState(line, command, bus::parameter::kLcdInitLight, m_initLightState, "INITLIGHT");
}

/// A text that is neither ON nor OFF leaves the state of the previous such command, and is echoed.
void CAE_INTERPRETER::SetLcdState(const CAE_LINE& line, const CAE_COMMAND& command,
                                  const bus::PARAMETER& parameter, std::uint8_t& state,
                                  const char* parameterName) {
  std::string echoed = line.StateText();
  const auto* const known = std::find_if(std::begin(kOnOff), std::end(kOnOff),
                                         [&](const ON_OFF& row) { return echoed == row.typed; });
  if (known != std::end(kOnOff)) {
    state = known->state;
    echoed = known->echoed;
  }
  if (Write(line, command, parameter, 0, state)) {
    Reply(std::string("CIA: ") + parameterName + " STATE IS SET TO " + echoed + " at address " +
          line.AddressText());
  }
}

// --- analogue input -----------------------------------------------------------------------------

void CAE_INTERPRETER::SetAnalogueMask(const CAE_LINE& line, const CAE_COMMAND& command) {
  if (Write(line, command, bus::parameter::kAnalogueMask, 0, line.Value())) {
    Reply("CIA: Channel MASK of the card is SET");
    Reply(FormatText("AMS:0x%X:0x%.2X", line.Address(), line.Value()));
  }
}

void CAE_INTERPRETER::GetAnalogueMask(const CAE_LINE& line, const CAE_COMMAND& command) {
  if (Read(line, command, bus::parameter::kAnalogueMask, 0)) {
    Reply("CIA: MASK is GOT from card");
    Reply(FormatText("AMV:0x%X:0x%.2X", line.Address(), ValueRead(line)));
  }
}

void CAE_INTERPRETER::StoreAnalogueMask(const CAE_LINE& line, const CAE_COMMAND& command) {
  if (Do(line, command, bus::action::kStoreAnalogueMask)) {
    Reply("CIA: MASK IS STORED at address " + line.AddressText());
  }
}

// --- RC servo controller ------------------------------------------------------------------------

void CAE_INTERPRETER::StoreServoPositions(const CAE_LINE& line, const CAE_COMMAND& command) {
  if (Do(line, command, bus::action::kStoreServoPositions)) {
    Reply("CIA: POSITIONS ARE STORED at address " + line.AddressText());
  }
}

void CAE_INTERPRETER::MoveToStoredPositions(const CAE_LINE& line, const CAE_COMMAND& command) {
  if (Do(line, command, bus::action::kMoveToStoredPositions)) {
    Reply("CIA: SERVOS ARE MOVED TO STORED POSITIONS at address " + line.AddressText());
  }
}

void CAE_INTERPRETER::SetServoParameter(const CAE_LINE& line, const CAE_COMMAND& command) {
  if (Write(line, command, ServoEnd(line), line.Channel(), line.Value())) {
    Reply("CIA: SERVO PARAM of the card is SET");
    Reply(FormatText("SPS:0x%X:SC%s%s:0x%.2X", line.Address(), line.EndPositionText().c_str(),
                     line.ChannelText().c_str(), line.Value()));
  }
}

void CAE_INTERPRETER::GetServoParameter(const CAE_LINE& line, const CAE_COMMAND& command) {
  if (Read(line, command, ServoEnd(line), line.Channel())) {
    Reply("CIA: SERVO PARAM is GOT from card");
    Reply(FormatText("SPG:0x%X:SC%s%s:0x%.2X", line.Address(), line.EndPositionText().c_str(),
                     line.ChannelText().c_str(), ValueRead(line)));
  }
}

// --- DC motor controller ------------------------------------------------------------------------

void CAE_INTERPRETER::SetSilentRange(const CAE_LINE& line, const CAE_COMMAND& command) {
  if (Write(line, command, bus::parameter::kSilentRange, line.Channel(), line.Value())) {
    Reply("CIA: MSR value of the card is SET");
    Reply(FormatText("MPS:0x%X:MSR%s:0x%.2X", line.Address(), line.ChannelText().c_str(),
                     line.Value()));
  }
}

void CAE_INTERPRETER::GetSilentRange(const CAE_LINE& line, const CAE_COMMAND& command) {
  if (Read(line, command, bus::parameter::kSilentRange, line.Channel())) {
    Reply("CIA: MSR value is GOT from card");
    Reply(FormatText("MSR%d:0x%X:0x%.2X", line.Channel(), line.Address(), ValueRead(line)));
  }
}

void CAE_INTERPRETER::StoreSilentRanges(const CAE_LINE& line, const CAE_COMMAND& command) {
  if (Do(line, command, bus::action::kStoreSilentRanges)) {
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
  for (std::uint8_t address = 0; address < bus::kAddresses; ++address) {
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
  for (std::size_t address = 0; address < bus::kAddresses; ++address) {
    m_cards.With(address, [](PERIFCARD& card) { card.clearPerifCard(); });
  }
  m_queueRequest(bus::IdentificationRequest());
  m_daemon.PauseSeconds(kIdentificationWaitS);
  ListCards("FORCED DISCOVER LIST:");
  m_daemon.SetPolling(polling);
}

void CAE_INTERPRETER::ListCards(const char* title) {
  Reply(title);
  for (std::uint8_t address = 0; address < bus::kAddresses; ++address) {
    const std::string name =
        m_cards.With(address, [](const PERIFCARD& card) { return std::string(card.name.data()); });
    Reply(FormatText("DTI:0x%X:%s", address, name.c_str()));
  }
}
