#pragma once

#include "vorn/base/Backlog.h"
#include "vorn/base/Logger.h"
#include "vorn/base/QList.h"
#include "vorn/base/VoQueue.h"
#include "vorn/bus/CardTable.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace vorn {

/// Translates the commands of the IO client into frame bodies for the cards.
///
/// Runs on the master loop's thread. Card table, queue and logger are lent and outlive it. Refused
/// commands are reported on the operator's console, the CAE interface; the IO client gets no
/// answer. Where too much waits for an operator who does not read, or is not there, further reports
/// are given up, and the log says so.
class OUT_COMMAND_PARSER {
 public:
  /// Takes a frame body for the card at an address, 0 to 15.
  using QUEUE_REQUEST = std::function<void(std::size_t address, QList body)>;

  OUT_COMMAND_PARSER(const std::string& ioInpSeparator, const std::string& caeOutSeparator,
                     CARD_TABLE& cards, QUEUE_REQUEST queueRequest, VOQUEUE& caeOutput,
                     LOGGER& logger);

  /// One message as read from the client: its commands, cut at the separator, in their order.
  /// Always 1.
  int ParseOutCommand(const QList& message);

  /// Runs `decode` on one command. An integer thrown by it is reported, on standard output and on
  /// the CAE interface, and goes no further.
  void RunGuarded(const std::string& command,
                  const std::function<void(const std::string&)>& decode);

 private:
  friend struct IO_FORMS;

  std::vector<std::string> Split(const std::string& text) const;
  void Decode(const std::string& command);

  // One operation per form of command.
  void BlockCommand(const std::string& command);
  void IrStream(const std::string& command);
  void LcdControl(const std::string& command);
  void LcdText(const std::string& command);

  bool IsCard(std::uint8_t address, CARD_CODE type);
  /// Queues the output frame of `data` for the card.
  void SendOutput(std::uint8_t address, const QList& data);
  void Refuse(const std::string& command);
  void TellOperator(const std::string& text);

  std::string m_inpSeparator;
  std::string m_caeOutSeparator;
  CARD_TABLE& m_cards;
  QUEUE_REQUEST m_queueRequest;
  VOQUEUE& m_caeOutput;
  LOGGER& m_logger;
  BACKLOG m_operatorBacklog;
};

}  // namespace vorn
