#pragma once

#include "vorn/base/Backlog.h"
#include "vorn/base/LOGGER.h"
#include "vorn/base/QList.h"
#include "vorn/base/VOQUEUE.h"
#include "vorn/bus/CARD_TABLE.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

/// Translates the commands of the IO client into frame bodies for the cards.
///
/// Runs on the master loop's thread. Card table, queues and logger are lent and outlive it. Refused
/// commands are reported on the operator's console, the CAE interface; the IO client gets no
/// answer. Where no operator has connected for so long that 4096 messages wait for one, further
/// reports are given up, and the log says so once.
class OUT_COMMAND_PARSER {
 public:
  /// The bus queue of a card address, 0 to 15.
  using BUS_QUEUE = std::function<VOQUEUE&(std::size_t address)>;

  OUT_COMMAND_PARSER(const std::string& ioInpSeparator, const std::string& caeOutSeparator,
                     CARD_TABLE& cards, BUS_QUEUE busQueue, VOQUEUE& caeOutput, LOGGER& logger);

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
  BUS_QUEUE m_busQueue;
  VOQUEUE& m_caeOutput;
  LOGGER& m_logger;
  BACKLOG m_reports;  // in m_caeOutput
};
