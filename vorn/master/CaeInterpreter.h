#pragma once

#include "vorn/config/ConfigDescriptor.h"
#include "vorn/master/CaeCommands.h"

#include <string>
#include <vector>

namespace vorn {

/// The operator's command line: recognises the commands in a line from the CAE client, carries them
/// out by their rows and answers on the CAE interface.
///
/// Runs on the master loop's thread. Queues, cards and daemon are lent and outlive it. Between
/// lines it remembers only the last valid ON or OFF of each command that takes one.
class CAE_INTERPRETER {
 public:
  /// `descriptor`: the CAE interface, for its separators. The rest as in CAE_CONTEXT.
  CAE_INTERPRETER(const INTERFACE_DESCRIPTOR& descriptor, VOQUEUE& output,
                  std::function<void(QList body)> queueRequest, VOQUEUE& inputLines,
                  CARD_TABLE& cards, DAEMON_CONTROL& daemon);

  /// One line as read from the client, with its separator. Every command that matches runs, in the
  /// order of the table; then the prompt, or the unknown-command reply, follows.
  void InterpretCaeCommand(const std::string& text);

  /// Whether commands run without being answered: those of an operator who has gone, while enough
  /// waits for the next one.
  void Mute(bool on) { m_context.muted = on; }

 private:
  void CarryOut(const CAE_COMMAND& command, const CAE_LINE& line, std::uint8_t& state);
  bool IsAcknowledged(std::uint8_t address, QList request, std::uint8_t& value);

  std::string m_inpSeparator;
  CAE_CONTEXT m_context;
  std::vector<std::uint8_t> m_states;  // ON or OFF of each row
};

}  // namespace vorn
