#include "vorn/master/Vorn.h"

#include "vorn/base/Budget.h"
#include "vorn/base/Values.h"
#include "vorn/config/ConfigReader.h"
#include "vorn/master/DaemonControl.h"

#include <csignal>
#include <utility>

namespace vorn {

namespace {

bool IsExit(const std::string& text, const INTERFACE_DESCRIPTOR& descriptor) {
  return text == kExit + descriptor.inpSeparator;
}

}  // namespace

VORN::VORN(const SIGNAL_FLAG& signalFlag, LINE& line, PAUSES& pauses, const std::string& configPath)
    : m_signalFlag(signalFlag),
      m_line(line),
      m_pauses(pauses),
      m_configPath(configPath),
      m_monitorBacklog(BytesAt(MARK::kCopiesAreNotMade)),
      m_operatorBacklog(BytesAt(MARK::kOperatorWaitsForAnswers)) {
  m_rest.delayUs = [this] { return m_config.threadDelayUs; };
  m_rest.isOver = [this] { return IsStopped(); };
  m_rest.hasWork = [this] { return HasWork(); };
  m_rest.takesSignals = true;
  for (VOQUEUE* const queue : {&m_serialQueue, &m_ioQueue, &m_caeQueue}) {
    queue->WakeTakerBy(m_rest.bell);
  }
}

VORN::~VORN() {
  StopWorkers();
}

/// The workers' threads use what is released next, so they end first.
void VORN::StopWorkers() {
  const auto each = [this](auto action) {
    for (const auto* const worker : {&m_cae, &m_io, &m_mon}) {
      if (*worker) {
        action(**worker);
      }
    }
    if (m_serial) {
      action(*m_serial);
    }
  };
  each([](auto& worker) { worker.RequestStop(); });  // all, so that their pauses run side by side
  each([](auto& worker) { worker.Terminate(); });
}

// --- start-up -----------------------------------------------------------------------------------

CONFIG_DESCRIPTOR VORN::ReadConfig() const {
  return ReadConfigFile(m_configPath);
}

bool VORN::InitProgramData() {
  m_config = ReadConfig();
  m_logger.SetFileName(m_config.logFileName);
  m_logger.SetLevel(m_config.logLevel);
  m_logger.WriteLog(kInf, "vorn is started");
  if (m_config.errorText != kNoConfigError) {
    m_logger.WriteLog(kErr, m_config.errorText);
    m_logger.WriteLog(kInf, "vorn is stopped with error");
    return false;
  }
  m_logger.WriteLog(kInf, "Initparam Autodiscover: " + BTOA(m_config.autoDiscover));
  m_logger.WriteLog(kInf, "Initparam Enablepoll: " + BTOA(m_config.polling));
  m_logger.WriteLog(kInf, "Initparam Speed (ThreadDelay): " + ITOA(m_config.threadDelayUs));
  return true;
}

void VORN::InitInterfaces() {
  m_cae = StartSocketInterface(m_config.cae, m_caeQueue);
  m_io = StartSocketInterface(m_config.io, m_ioQueue);
  m_mon = StartSocketInterface(m_config.mon, m_monQueue);

  m_serial = std::make_unique<SERIAL_INTERFACE>("", kSearchDevices, kNotConnected, m_logger,
                                                m_serialQueue, m_cards, m_config.polling,
                                                m_config.autoDiscover, m_line, m_pauses);
  m_serial->SetThreadDelayUs(m_config.threadDelayUs);

  m_serial->WakeProducerBy(m_rest.bell);
  m_io->OutputQueue().WakeProducerBy(m_rest.bell, BytesAt(MARK::kLinesWaitForIo));
  m_cae->OutputQueue().WakeProducerBy(m_rest.bell, BytesAt(MARK::kOperatorWaitsForAnswers));

  m_caeInterpreter = std::make_unique<CAE_INTERPRETER>(
      m_config.cae, m_cae->OutputQueue(),
      [this](QList body) {
        m_serial->QueueRequest(SERIAL_INTERFACE::kGeneralQueue, std::move(body));
      },
      m_serialQueue, m_cards, static_cast<DAEMON_CONTROL&>(*this));
  m_outCommandParser = std::make_unique<OUT_COMMAND_PARSER>(
      m_config.io.inpSeparator, m_config.cae.outSeparator, m_cards,
      [this](std::size_t address, QList body) { m_serial->QueueRequest(address, std::move(body)); },
      m_cae->OutputQueue(), m_logger);
}

std::unique_ptr<SOCKET_INTERFACE> VORN::StartSocketInterface(const INTERFACE_DESCRIPTOR& descriptor,
                                                             VOQUEUE& inboundQueue) {
  auto worker = std::make_unique<SOCKET_INTERFACE>(descriptor, m_logger, inboundQueue, m_pauses);
  worker->Init();  // a failure is logged there and leaves the worker idle
  return worker;
}

// --- the master loop ----------------------------------------------------------------------------

void VORN::MasterThread() {
  for (;;) {
    m_pauses.Rest(m_rest);
    if (StoppedBySignal()) {
      return;
    }
    ForwardCardInput();
    ServeIo();
    ServeCae();
  }
}

bool VORN::IsStopped() const {
  const std::int32_t signalNumber = m_signalFlag.load(std::memory_order_relaxed);
  return signalNumber == SIGINT || signalNumber == SIGTERM;
}

/// A signal is told in every pass once it has come.
bool VORN::HasWork() {
  return m_signalFlag.load(std::memory_order_relaxed) != kNoSignal || HasCardInput() ||
         HasIoMessage() || HasCaeMessage(m_cae->IsConnected());
}

bool VORN::StoppedBySignal() {
  const std::int32_t signalNumber = m_signalFlag.load(std::memory_order_relaxed);
  if (signalNumber == kNoSignal) {
    return false;
  }
  m_cae->mf_SIGhandler(signalNumber);
  m_io->mf_SIGhandler(signalNumber);
  m_mon->mf_SIGhandler(signalNumber);
  m_serial->Logger().WriteLog(kInf, "signal " + ITOA(signalNumber) + " on serial interface");
  m_serial->ClosePort();
  if (!IsStopped()) {
    return false;
  }
  m_logger.WriteLog(kInf, "vorn is stopped by SIGTERM or SIGINT");
  return true;
}

bool VORN::HasCardInput() {
  return !m_serialQueue.IsEmpty() &&
         (!m_io->IsConnected() || m_io->OutputQueue().Bytes() < BytesAt(MARK::kLinesWaitForIo));
}

/// The monitor sees card input only while an IO client is connected; without one the line is
/// dropped.
void VORN::ForwardCardInput() {
  if (!HasCardInput()) {
    return;
  }
  QList line = m_serialQueue.DeQueue();
  if (!m_io->IsConnected()) {
    return;
  }
  const std::string& separator = m_config.io.outSeparator;
  line.insert(line.end(), separator.begin(), separator.end());
  m_io->OutputQueue().ToQueue(line);
  CopyToMonitor(line);
}

/// While the bus is behind no message is taken: the IO worker then stops reading, and TCP holds the
/// client back. Without a link IO goes on: each card keeps the latest of what waits for it.
bool VORN::HasIoMessage() {
  return !m_ioQueue.IsEmpty() && !m_serial->IsBehind();
}

void VORN::ServeIo() {
  if (!HasIoMessage()) {
    return;
  }
  const VOQUEUE::NUMBER number = m_ioQueue.NextToGo();
  const QList message = m_ioQueue.DeQueue();
  if (IsExit(Convert_QList2String(message), m_config.io)) {
    EndIoConnection(number);
    return;
  }
  ParseOutCommand(message);
  CopyToMonitor(message);
}

/// Of a client that has left since then it ends nobody's.
void VORN::EndIoConnection(VOQUEUE::NUMBER number) {
  if (m_io->IsLeftBehind(number)) {
    return;
  }
  // Behind lines that nobody reads it would be for the next client, with those of all before.
  if (m_io->OutputQueue().Bytes() < BytesAt(MARK::kFarewellIsNotMade)) {
    m_io->OutputQueue().ToQueue(Convert_String2QList(kFarewell + m_config.io.outSeparator));
  }
  PauseSeconds(kFarewellWaitS);
  m_io->CloseByCommandOf(number);
}

void VORN::CopyToMonitor(const QList& message) {
  if (!m_mon->IsConnected()) {
    return;
  }
  m_monitorBacklog.Note(m_mon->OutputQueue().Bytes());
  if (m_monitorBacklog.HasJustFilled()) {
    m_logger.WriteLog(kErr, "too many messages wait on MON interface, copies are not made");
  }
  if (!m_monitorBacklog.IsFull()) {
    m_mon->OutputQueue().ToQueue(message);
  }
}

/// An operator who does not read his answers, or an IO client that does not read what he asks for,
/// keeps him waiting: the CAE worker then stops reading, and TCP holds him back.
bool VORN::HasCaeMessage(bool isOperatorThere) {
  return !m_caeQueue.IsEmpty() && m_serialQueue.Bytes() < BytesAt(MARK::kOperatorWaitsForLines) &&
         (!isOperatorThere ||
          m_cae->OutputQueue().Bytes() < BytesAt(MARK::kOperatorWaitsForAnswers));
}

/// An operator who has gone cannot be held back: his commands run, and further answers to them are
/// not kept.
void VORN::ServeCae() {
  const bool isThere = m_cae->IsConnected();
  if (!HasCaeMessage(isThere)) {
    return;
  }
  if (!isThere) {
    m_operatorBacklog.Note(m_cae->OutputQueue().Bytes());
    if (m_operatorBacklog.HasJustFilled()) {
      m_logger.WriteLog(kErr, "too many messages wait on CAE interface, answers are not kept");
    }
  }
  m_caeInterpreter->Mute(!isThere && m_operatorBacklog.IsFull());
  m_caeNumber = m_caeQueue.NextToGo();
  const std::string text = Convert_QList2String(m_caeQueue.DeQueue());
  if (!IsExit(text, m_config.cae) || !m_cae->IsLeftBehind(m_caeNumber)) {
    m_caeInterpreter->InterpretCaeCommand(text);
    m_serial->LookAgain();  // a card may be one to poll now
  }
}

/// A stop cuts it short; what the pause was for is then not told any more.
void VORN::PauseSeconds(int seconds) {
  m_pauses.SecondsUnless(seconds, m_rest.isOver);
  if (IsStopped()) {
    m_caeInterpreter->Mute(true);
  }
}

int VORN::ParseOutCommand(const QList& message) {
  return m_outCommandParser->ParseOutCommand(message);
}

// --- for the CAE commands -----------------------------------------------------------------------

void VORN::SetThreadDelays(std::int32_t delayUs) {
  m_config.threadDelayUs = delayUs;
  m_serial->SetThreadDelayUs(delayUs);
  m_cae->SetThreadDelayUs(delayUs);
  m_io->SetThreadDelayUs(delayUs);
  m_mon->SetThreadDelayUs(delayUs);
}

}  // namespace vorn
