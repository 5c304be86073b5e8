#pragma once

#include "thread/Pauses.h"
#include "thread/Rest.h"
#include "vorn/base/Backlog.h"
#include "vorn/base/Logger.h"
#include "vorn/base/VoQueue.h"
#include "vorn/bus/CardTable.h"
#include "vorn/bus/SerialInterface.h"
#include "vorn/config/ConfigDescriptor.h"
#include "vorn/master/CaeInterpreter.h"
#include "vorn/master/DaemonControl.h"
#include "vorn/master/OutCommandParser.h"
#include "vorn/master/SignalFlag.h"
#include "vorn/tcp/SocketInterface.h"

#include <cstdint>
#include <memory>
#include <string>

namespace vorn {

/// The central object: owns the configuration, the inbound queues, the card table and the four
/// workers, and runs the master loop that moves messages between them.
///
/// One instance, built by main and used on the main thread only. It lends its queues and the card
/// table to the workers, whose threads it stops before it releases anything.
class VORN final : private DAEMON_CONTROL {
 public:
  /// Lent: the stop flag, the line to the bus, the pauses. `configPath` is the file that
  /// InitProgramData reads.
  VORN(const SIGNAL_FLAG& signalFlag, LINE& line, PAUSES& pauses,
       const std::string& configPath = kConfigPath);
  ~VORN();
  VORN(const VORN&) = delete;
  VORN& operator=(const VORN&) = delete;

  /// Reads the configuration, applies it and logs the start-up lines; false when it is unusable.
  bool InitProgramData();
  /// Creates and starts the workers: CAE, IO, MON, serial. Once, after InitProgramData.
  void InitInterfaces();
  /// The master loop; returns when SIGINT or SIGTERM has come.
  void MasterThread();

  CONFIG_DESCRIPTOR ReadConfig() const;
  /// Translates one message of the IO client; always 1. The result is not looked at.
  int ParseOutCommand(const QList& message);

  static constexpr const char* kConfigPath = "/etc/vorn/vornconf.xml";

 private:
  bool IsStopped() const;
  // What the next pass has to do.
  bool HasWork();
  bool HasCardInput();
  bool HasIoMessage();
  bool HasCaeMessage(bool isOperatorThere);

  // The stages of a pass.
  bool StoppedBySignal();
  void ForwardCardInput();
  void ServeIo();
  void EndIoConnection(VOQUEUE::NUMBER number);
  void CopyToMonitor(const QList& message);
  void ServeCae();

  std::unique_ptr<SOCKET_INTERFACE> StartSocketInterface(const INTERFACE_DESCRIPTOR& descriptor,
                                                         VOQUEUE& inboundQueue);
  void StopWorkers();

  // DAEMON_CONTROL, for the CAE commands.
  void SetThreadDelays(std::int32_t delayUs) override;
  bool Polling() override { return m_serial->Polling(); }
  void SetPolling(bool on) override { m_serial->SetPolling(on); }
  void CloseCaeConnection() override { m_cae->CloseByCommandOf(m_caeNumber); }
  void PauseSeconds(int seconds) override;

  const SIGNAL_FLAG& m_signalFlag;
  LINE& m_line;
  PAUSES& m_pauses;
  const std::string m_configPath;
  LOGGER m_logger;
  CONFIG_DESCRIPTOR m_config;
  // What is declared last is released first: the two that borrow the workers' queues, the queues
  // inbound to the master loop, the workers, whose threads have ended by then, the cards, the bell.
  REST m_rest;
  CARD_TABLE m_cards;
  std::unique_ptr<SERIAL_INTERFACE> m_serial;
  std::unique_ptr<SOCKET_INTERFACE> m_mon;
  std::unique_ptr<SOCKET_INTERFACE> m_io;
  std::unique_ptr<SOCKET_INTERFACE> m_cae;
  VOQUEUE m_serialQueue;
  VOQUEUE m_monQueue;  // never read
  VOQUEUE m_caeQueue;
  VOQUEUE m_ioQueue;
  std::unique_ptr<CAE_INTERPRETER> m_caeInterpreter;
  std::unique_ptr<OUT_COMMAND_PARSER> m_outCommandParser;
  BACKLOG m_monitorBacklog;
  BACKLOG m_operatorBacklog;        // while there is no operator
  VOQUEUE::NUMBER m_caeNumber = 0;  // of the CAE message that is carried out
};

}  // namespace vorn
