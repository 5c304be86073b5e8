#include "vorn/master/CaeInterpreter.h"

#include "vorn/master/TextParts.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

namespace vorn {

namespace {

constexpr char kPrompt[] = ">";
constexpr int kAcknowledgementWaitS = 1;

struct ON_OFF {
  const char* typed;  ///< the first two characters
  const char* echoed;
  std::uint8_t state;
};
constexpr ON_OFF kOnOff[] = {{"OF", "OFF", 0x00}, {"ON", "ON", 0xFF}};

/// A text that is neither ON nor OFF leaves the state of the previous such line, and is echoed.
std::string TakeState(const CAE_LINE& line, std::uint8_t& state) {
  std::string typed = line.StateText();
  const auto* const known = std::find_if(std::begin(kOnOff), std::end(kOnOff),
                                         [&](const ON_OFF& row) { return typed == row.typed; });
  if (known == std::end(kOnOff)) {
    return typed;
  }
  state = known->state;
  return known->echoed;
}

QList RequestOf(const CAE_STEP& step, const CAE_LINE& line, std::uint8_t state) {
  const bool isB = step.parameterOfB.write != 0 && line.EndPositionText() == "B";
  const bus::PARAMETER& parameter = isB ? step.parameterOfB : step.parameter;
  switch (step.kind) {
    case CAE_STEP::kTell:
      return bus::ActionRequest(line.Address(), step.action);
    case CAE_STEP::kRead:
      return bus::ReadRequest(line.Address(), parameter, line.Channel());
    default:
      return bus::WriteRequest(line.Address(), parameter, line.Channel(),
                               step.kind == CAE_STEP::kWriteState ? state : line.Value());
  }
}

/// What an answer shows beside the parameters of its line.
struct SHOWN {
  std::string state;
  std::uint8_t valueRead = 0;
};

std::string TextOf(char field, const CAE_LINE& line, const SHOWN& shown) {
  switch (field) {
    case 'x':
      return line.AddressText();
    case 'p':
      return line.EndPositionText();
    case 'c':
      return line.ChannelText();
    case 's':
      return shown.state;
    default:
      return line.NumberText();
  }
}

int NumberOf(char field, const CAE_LINE& line, const SHOWN& shown) {
  switch (field) {
    case 'x':
      return line.Address();
    case 'c':
      return line.Channel();
    case 'v':
      return line.Value();
    default:
      return shown.valueRead;
  }
}

std::string Filled(const CAE_REPLY& reply, const CAE_LINE& line, const SHOWN& shown) {
  std::string text;
  const char* field = reply.fields;
  for (const char* at = reply.format; *at != '\0'; ++at) {
    if (*at != '%') {
      text += *at;
      continue;
    }
    const char* const begin = at++;
    if (*at == '%') {
      text += *at;
      continue;
    }
    at += std::strcspn(at, "sXd");
    text += *at == 's'
                ? TextOf(*field++, line, shown)
                : FormatText(std::string(begin, at + 1).c_str(), NumberOf(*field++, line, shown));
  }
  return text;
}

}  // namespace

CAE_INTERPRETER::CAE_INTERPRETER(const INTERFACE_DESCRIPTOR& descriptor, VOQUEUE& output,
                                 std::function<void(QList body)> queueRequest, VOQUEUE& inputLines,
                                 CARD_TABLE& cards, DAEMON_CONTROL& daemon)
    : m_inpSeparator(descriptor.inpSeparator),
      m_context{
          descriptor.outSeparator, output, std::move(queueRequest), inputLines, cards, daemon},
      m_states(CaeCommands().size()) {
}

void CAE_INTERPRETER::InterpretCaeCommand(const std::string& text) {
  const CAE_LINE line(text, m_inpSeparator);
  bool handled = false;
  for (std::size_t row = 0; row < CaeCommands().size(); ++row) {
    if (CaeCommands()[row].Matches(line)) {
      handled = true;
      CarryOut(CaeCommands()[row], line, m_states[row]);
    }
  }
  // The unknown-command reply carries its prompt in the same message.
  m_context.Reply(handled ? kPrompt : "CIE: UNKNOWN COMMAND " + m_context.outSeparator + kPrompt);
}

void CAE_INTERPRETER::CarryOut(const CAE_COMMAND& command, const CAE_LINE& line,
                               std::uint8_t& state) {
  if (command.cards != nullptr && !m_context.cards.With(line.Address(), command.cards->suits)) {
    m_context.Reply(command.cards->refusal);
    return;
  }
  SHOWN shown;
  bool done = true;
  switch (command.step.kind) {
    case CAE_STEP::kNothing:
      break;
    case CAE_STEP::kRun:
      done = command.step.run(m_context, line);
      break;
    case CAE_STEP::kWriteState:
      shown.state = TakeState(line, state);
      [[fallthrough]];
    default:
      done = IsAcknowledged(line.Address(), RequestOf(command.step, line, state), shown.valueRead);
  }
  if (!done) {
    m_context.Reply(command.failure);
    return;
  }
  for (const CAE_REPLY& reply : {command.reply, command.result}) {
    if (reply.format != nullptr) {
      m_context.Reply(Filled(reply, line, shown));
    }
  }
}

/// Sends the request and waits; false when the card did not acknowledge in time.
bool CAE_INTERPRETER::IsAcknowledged(std::uint8_t address, QList request, std::uint8_t& value) {
  m_context.cards.With(address, [](PERIFCARD& card) { card.queryBytes.fill(0); });
  m_context.queueRequest(std::move(request));
  m_context.daemon.PauseSeconds(kAcknowledgementWaitS);
  return m_context.cards.With(address, [&](const PERIFCARD& card) {
    value = card.queryBytes[bus::kReplyValueAt];
    return card.queryBytes[0] == bus::reply::kQueryData;
  });
}

}  // namespace vorn
