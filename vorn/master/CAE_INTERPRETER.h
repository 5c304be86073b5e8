#pragma once

#include "vorn/base/VOQUEUE.h"
#include "vorn/bus/CARD_TABLE.h"
#include "vorn/bus/CardBus.h"
#include "vorn/config/INTERFACE_DESCRIPTOR.h"
#include "vorn/master/CaeCommands.h"
#include "vorn/master/DAEMON_CONTROL.h"

#include <cstdint>
#include <functional>
#include <string>

constexpr const char* kDriverVersion = "1.20";

/// The operator's command line: recognises the commands in a line from the CAE client, carries them
/// out and answers on the CAE interface.
///
/// Runs on the master loop's thread. Queues, cards and daemon are lent and outlive it. Between
/// lines it remembers only the last valid ON or OFF of the two LCD commands.
class CAE_INTERPRETER {
 public:
  /// Takes a frame body for the bus.
  using QUEUE_REQUEST = std::function<void(QList body)>;

  /// `descriptor`: the CAE interface, for its separators. `output`: lines to the CAE client.
  /// `inputLines`: card input as if reported by a card.
  CAE_INTERPRETER(const INTERFACE_DESCRIPTOR& descriptor, VOQUEUE& output,
                  QUEUE_REQUEST queueRequest, VOQUEUE& inputLines, CARD_TABLE& cards,
                  DAEMON_CONTROL& daemon);

  /// One line as read from the client, with its separator. Every command that matches runs, in the
  /// order of the table; then the prompt, or the unknown-command reply, follows.
  void InterpretCaeCommand(const std::string& text);

  /// Whether commands run without being answered: those of an operator who has gone, while enough
  /// waits for the next one.
  void Mute(bool on) { m_muted = on; }

 private:
  friend struct CAE_COMMAND_TABLE;

  // One operation per command; see the table in CaeCommands.cpp.
  void SetSpeed(const CAE_LINE& line, const CAE_COMMAND& command);
  void DisablePoll(const CAE_LINE& line, const CAE_COMMAND& command);
  void ShowVersion(const CAE_LINE& line, const CAE_COMMAND& command);
  void SetLcdSelfTest(const CAE_LINE& line, const CAE_COMMAND& command);
  void SetLcdInitLight(const CAE_LINE& line, const CAE_COMMAND& command);
  void Reboot(const CAE_LINE& line, const CAE_COMMAND& command);
  void SetAnalogueMask(const CAE_LINE& line, const CAE_COMMAND& command);
  void GetAnalogueMask(const CAE_LINE& line, const CAE_COMMAND& command);
  void StoreAnalogueMask(const CAE_LINE& line, const CAE_COMMAND& command);
  void StoreServoPositions(const CAE_LINE& line, const CAE_COMMAND& command);
  void MoveToStoredPositions(const CAE_LINE& line, const CAE_COMMAND& command);
  void SetServoParameter(const CAE_LINE& line, const CAE_COMMAND& command);
  void GetServoParameter(const CAE_LINE& line, const CAE_COMMAND& command);
  void SetSilentRange(const CAE_LINE& line, const CAE_COMMAND& command);
  void GetSilentRange(const CAE_LINE& line, const CAE_COMMAND& command);
  void StoreSilentRanges(const CAE_LINE& line, const CAE_COMMAND& command);
  void SwitchPollOn(const CAE_LINE& line, const CAE_COMMAND& command);
  void SwitchPollOff(const CAE_LINE& line, const CAE_COMMAND& command);
  void EnablePoll(const CAE_LINE& line, const CAE_COMMAND& command);
  void ShowPollState(const CAE_LINE& line, const CAE_COMMAND& command);
  void Discover(const CAE_LINE& line, const CAE_COMMAND& command);
  void ForceDiscover(const CAE_LINE& line, const CAE_COMMAND& command);
  void Exit(const CAE_LINE& line, const CAE_COMMAND& command);
  void SendLastInputState(const CAE_LINE& line, const CAE_COMMAND& command);
  void ShowHelp(const CAE_LINE& line, const CAE_COMMAND& command);
  void ShowIoExamples(const CAE_LINE& line, const CAE_COMMAND& command);

  // What they share.
  void Reply(const std::string& text);
  bool RefusesCard(const CAE_LINE& line, const CAE_COMMAND& command);
  bool RequestOfCard(const CAE_LINE& line, const CAE_COMMAND& command, QList request);
  bool Write(const CAE_LINE& line, const CAE_COMMAND& command, const bus::PARAMETER& parameter,
             std::uint8_t channel, std::uint8_t value);
  bool Read(const CAE_LINE& line, const CAE_COMMAND& command, const bus::PARAMETER& parameter,
            std::uint8_t channel);
  bool Do(const CAE_LINE& line, const CAE_COMMAND& command, std::uint8_t action);
  std::uint8_t ValueRead(const CAE_LINE& line);
  void SetLcdState(const CAE_LINE& line, const CAE_COMMAND& command,
                   const bus::PARAMETER& parameter, std::uint8_t& state, const char* parameterName);
  void SwitchPolling(const CAE_LINE& line, const CAE_COMMAND& command, bool on);
  void ReplyPollingState();
  void ListCards(const char* title);

  std::string m_inpSeparator;
  std::string m_outSeparator;
  VOQUEUE& m_output;
  QUEUE_REQUEST m_queueRequest;
  VOQUEUE& m_inputLines;
  CARD_TABLE& m_cards;
  DAEMON_CONTROL& m_daemon;
  bool m_muted = false;
  std::uint8_t m_selfTestState = 0;
  std::uint8_t m_initLightState = 0;
};
