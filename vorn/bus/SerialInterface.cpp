#include "vorn/bus/SerialInterface.h"

#include "vorn/base/Budget.h"
#include "vorn/base/Values.h"
#include "vorn/bus/CardReplies.h"

#include <algorithm>

namespace vorn {

namespace {

/// Where so many polls of a card wait, no further one is queued: one would do. A lost link leaves a
/// poll behind in each queue that its pass did not reach, and since every pass adds as many as it
/// serves, they would add up for as long as an adapter is flaky. So many of the longest fit.
constexpr std::size_t kMostPollsWaiting = BytesAt(MARK::kBusIsBehind) / (bus::kLongestRequest + 1);

constexpr int kPauseAfterConnectS = 1;
constexpr int kPauseAfterFailureS = 2;

constexpr std::int32_t kPauseBeforeHandshakeUs = 200;

// What Comm2HW makes of no reply, and of no request; never seen on the wire.
constexpr const char* kTimeoutReply = "TME";
constexpr const char* kEmptyRequestReply = "LCE";

bool IsPolled(const PERIFCARD& card) {
  return card.stateWord == kInputCard && card.pollFlag != 0;
}

}  // namespace

SERIAL_INTERFACE::SERIAL_INTERFACE(const std::string& devicePath, PORT_SELECTION selection,
                                   LINK_STATUS linkStatus, const LOGGER& logger,
                                   VOQUEUE& inboundQueue, CARD_TABLE& cards, bool polling,
                                   bool autoDiscover, LINE& line, PAUSES& pauses)
    : m_logger(logger),
      m_devicePath(devicePath),
      m_line(line),
      m_exchange(line),
      m_pauses(pauses),
      m_linkStatus(linkStatus),
      m_selection(selection),
      m_inboundQueue(inboundQueue),
      m_lineBacklog(BytesAt(MARK::kLinesAreLost)),
      m_cards(cards),
      m_polling(polling),
      m_autoDiscover(autoDiscover) {
  m_rest.delayUs = [this] { return ThreadDelayUs(); };
  m_rest.isOver = [this] { return StopRequested(); };
  m_rest.hasWork = [this] { return HasWork(); };
  for (VOQUEUE& queue : m_busQueues) {
    queue.WakeTakerBy(m_rest.bell);
  }
  m_inboundQueue.WakeProducerBy(m_rest.bell, BytesAt(MARK::kPollingPauses));
  KeepOwnPace(m_rest.bell);
  SetThreadType(kIntervalDriven, 1);
}

SERIAL_INTERFACE::~SERIAL_INTERFACE() {
  Terminate();
  m_line.Close();
}

// --- the pass -----------------------------------------------------------------------------------

/// Without a link every pass looks for one; with a card to poll every pass polls. An open port that
/// is no link is left alone.
bool SERIAL_INTERFACE::HasWork() {
  if (m_closeRequested) {
    return m_linkStatus != kNotConnected;
  }
  if (m_linkStatus != kControllerFound) {
    return m_linkStatus == kNotConnected;
  }
  return std::any_of(m_busQueues.begin(), m_busQueues.end(),
                     [](VOQUEUE& queue) { return !queue.IsEmpty(); }) ||
         (IsPolling() && HasPolledCard());
}

/// Two noisy analogue cards can outrun the master loop, which takes one line a pass, for good.
bool SERIAL_INTERFACE::IsPolling() {
  return m_polling && m_inboundQueue.Bytes() < BytesAt(MARK::kPollingPauses);
}

bool SERIAL_INTERFACE::OnTask() {
  m_pauses.Rest(m_rest);
  if (m_closeRequested) {
    LoseLink();
    return true;
  }
  if (m_linkStatus == kNotConnected) {
    Connect();
  }
  if (m_linkStatus != kControllerFound) {
    return true;
  }
  ServeBusQueues();
  if (IsPolling()) {
    QueuePollFrames();
  }
  return true;
}

void SERIAL_INTERFACE::Connect() {
  if (!Init()) {
    m_linkStatus = kNotConnected;
    m_pauses.Seconds(kPauseAfterFailureS);
    return;
  }
  m_hasCarriedPass = false;
  m_isServing = !m_isLostInOnePass;
  if (m_autoDiscover) {
    // One that waits since the link was lost before is enough.
    if (m_questionsWaiting.at(kGeneralQueue) == 0) {
      QueueQuestion(kGeneralQueue, bus::IdentificationRequest());
    }
    m_pauses.Seconds(kPauseAfterConnectS);
  }
}

void SERIAL_INTERFACE::ServeBusQueues() {
  for (std::size_t number = 0; number < kBusQueues; ++number) {
    if (!ServeBusQueue(number)) {
      return;
    }
  }
  m_hasCarriedPass = true;
  m_isServing = true;
}

/// At most one frame, so that no card can starve the others. An empty request is answered and is no
/// frame: a client that sends many of them would starve the polls behind them. False when the link
/// is lost.
bool SERIAL_INTERFACE::ServeBusQueue(std::size_t number) {
  VOQUEUE& queue = m_busQueues.at(number);
  bool isFrame = false;
  for (std::size_t left = queue.Size(); left > 0 && !isFrame; --left) {
    const QList body = queue.DeQueue();
    isFrame = !body.empty();
    ForgetQuestion(number, body);
    if (!Serve(body)) {
      return false;
    }
  }
  return true;
}

/// Sends one request and takes its reply. False when the link is lost; the request is lost with it.
bool SERIAL_INTERFACE::Serve(const QList& request) {
  const ANSWER answer = Ask(request);
  if (m_closeRequested) {
    return false;
  }
  if (answer.outcome == OUTCOME::kTimeout) {
    m_logger.WriteLog(kInf, "comm timeout " + m_devicePath);
    LoseLink();
    return false;
  }
  if (answer.outcome == OUTCOME::kReply) {
    const CARD_REPLY reply(answer.reply.begin(), answer.reply.end());
    if (TakeReply(m_cards, reply)) {
      WriteToQueue(reply.data());
    }
  }
  return true;
}

ANSWER SERIAL_INTERFACE::Ask(const QList& request) {
  if (!m_exchange.Send(request)) {
    // The reply is awaited all the same; the timeout that follows closes the port.
    m_logger.WriteLog(kErr, "unable to  write to " + m_devicePath);
  }
  return m_exchange.Await(m_closeRequested);
}

QList SERIAL_INTERFACE::Comm2HW(const QList& body) {
  const ANSWER answer = Ask(body);
  if (body.empty()) {
    return Convert_CharBuff2QList(kEmptyRequestReply);
  }
  const bool isSilent = answer.outcome == OUTCOME::kTimeout && answer.reply.empty();
  return isSilent ? Convert_CharBuff2QList(kTimeoutReply) : answer.reply;
}

void SERIAL_INTERFACE::WriteToQueue(const std::uint8_t* reply) {
  const std::vector<std::string> lines =
      m_cards.With(reply[bus::kReplyAddressAt], ChangedInputLines);
  for (const std::string& line : lines) {
    m_lineBacklog.Note(m_inboundQueue.Bytes());
    if (m_lineBacklog.HasJustFilled()) {
      m_logger.WriteLog(kErr, "too many messages wait from the card bus, input lines are lost");
    }
    if (!m_lineBacklog.IsFull()) {
      m_inboundQueue.ToQueue(Convert_CharBuff2QList(line.c_str()));
    }
  }
}

bool SERIAL_INTERFACE::HasPolledCard() {
  for (std::size_t address = 0; address < bus::kAddresses; ++address) {
    if (m_cards.With(address, IsPolled)) {
      return true;
    }
  }
  return false;
}

void SERIAL_INTERFACE::QueuePollFrames() {
  for (std::size_t address = 0; address < bus::kAddresses; ++address) {
    bool polled = false;
    const QList frame = m_cards.With(address, [&](const PERIFCARD& card) {
      polled = IsPolled(card);
      return polled ? card.pollFrame : QList();
    });
    const std::size_t waiting = m_questionsWaiting.at(address);
    const bool isFull = m_busQueues.at(address).Bytes() >= BytesAt(MARK::kBusIsBehind);
    if (polled && waiting < (isFull ? 1 : kMostPollsWaiting)) {
      QueueQuestion(address, frame);
    }
  }
}

/// For a request of which one that waits is enough.
void SERIAL_INTERFACE::QueueQuestion(std::size_t number, const QList& body) {
  ++m_questionsWaiting.at(number);
  m_busQueues.at(number).ToQueue(body);
}

/// For a message that has left its queue. Those that somebody else has queued are not counted.
void SERIAL_INTERFACE::ForgetQuestion(std::size_t number, const QList& body) {
  if (!bus::IsQuestion(body)) {
    return;
  }
  // In one step: who drops the oldest forgets as well, on the master loop's thread.
  std::atomic<std::size_t>& count = m_questionsWaiting.at(number);
  std::size_t waiting = count;
  while (waiting > 0 && !count.compare_exchange_weak(waiting, waiting - 1)) {
  }
}

// --- for the master loop ------------------------------------------------------------------------

void SERIAL_INTERFACE::QueueRequest(std::size_t number, QList body) {
  VOQUEUE& queue = m_busQueues.at(number);
  if (m_isServing) {
    queue.ToQueue(std::move(body));
    return;
  }
  if (body.empty() && queue.Bytes() >= BytesAt(MARK::kBusIsBehind)) {
    return;  // what does nothing pushes out nothing
  }
  const std::vector<QList> dropped =
      queue.ToQueueLatest(std::move(body), BytesAt(MARK::kBusIsBehind));
  for (const QList& request : dropped) {
    ForgetQuestion(number, request);
  }
  if (!dropped.empty() && !m_isLossTold.Exchange(true)) {
    m_logger.WriteLog(kErr, "too many messages wait for the card bus, the oldest are lost");
  }
}

void SERIAL_INTERFACE::WakeProducerBy(BELL& bell) {
  for (VOQUEUE& queue : m_busQueues) {
    queue.WakeProducerBy(bell, BytesAt(MARK::kBusIsBehind));
  }
}

bool SERIAL_INTERFACE::IsBehind() {
  return m_isServing && std::any_of(m_busQueues.begin(), m_busQueues.end(), [](VOQUEUE& queue) {
           return queue.Bytes() >= BytesAt(MARK::kBusIsBehind);
         });
}

// --- the link -----------------------------------------------------------------------------------

bool SERIAL_INTERFACE::Init() {
  switch (m_selection) {
    case kFixedPath:
      if (!m_line.Open(m_devicePath)) {
        m_logger.WriteLog(kErr, "unable to open " + m_devicePath + " for hardware communication");
        return false;
      }
      return CheckPort();  // stays open where it fails that
    case kSearchDevices:
      return Search();
  }
  return false;
}

bool SERIAL_INTERFACE::Search() {
  const std::list<std::string> candidates = m_line.Search();
  if (candidates.empty()) {
    m_logger.WriteLog(kErr, "ttyUSB devices couldn't be found");
    m_linkStatus = kNotConnected;
  }
  for (const std::string& candidate : candidates) {
    if (m_closeRequested) {
      break;
    }
    m_devicePath = candidate;
    if (!m_line.Open(m_devicePath)) {
      m_logger.WriteLog(kErr, "unable to  open " + m_devicePath + " for hardware communication");
    } else if (CheckPort()) {
      return true;
    } else {
      LoseLink();
    }
  }
  return false;
}

/// Sets up the open port and looks for a controller.
bool SERIAL_INTERFACE::CheckPort() {
  m_linkStatus = kPortOpen;
  if (!SetSerialParams() || !HardwareCheck(m_devicePath)) {
    return false;
  }
  m_linkStatus = kControllerFound;
  return true;
}

bool SERIAL_INTERFACE::SetSerialParams() {
  const int error = m_line.SetUp();
  if (error != 0) {
    m_logger.WriteLog(kErr, "error " + ITOA(error) + " from tcsetattr");
  }
  return error == 0;
}

bool SERIAL_INTERFACE::HardwareCheck(const std::string& port) {
  m_logger.WriteLog(kInf, "try to catch hardware on " + port);
  m_pauses.DelayUs(kPauseBeforeHandshakeUs);
  const ANSWER answer = Ask(bus::HandshakeRequest());
  if (answer.outcome == OUTCOME::kReply) {
    // Four characters behind the reply code; a shorter reply shows what it has.
    const std::string text = Convert_QList2String(answer.reply);
    const std::string version = text.size() > 1 ? text.substr(1, 4) : std::string();
    m_logger.WriteLog(kInf, "hardware found on " + port + " version: " + version);
    return true;
  }
  // Where the wait was cut short, the controller is not to blame.
  if (answer.outcome == OUTCOME::kTimeout && !m_closeRequested) {
    m_logger.WriteLog(kInf, "comm timeout " + port);
  }
  return false;
}

void SERIAL_INTERFACE::LoseLink() {
  m_line.Close();
  if (m_linkStatus == kControllerFound) {
    m_isLostInOnePass = !m_hasCarriedPass;
  }
  m_linkStatus = kNotConnected;
  if (m_isServing.Exchange(false)) {
    m_isLossTold = false;
    m_inboundQueue.WakeTaker();  // the master loop does not wait for a link that is lost
  }
}

}  // namespace vorn
