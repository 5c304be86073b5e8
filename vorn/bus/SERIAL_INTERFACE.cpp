#include "vorn/bus/SERIAL_INTERFACE.h"

#include "thread/Pause.h"
#include "vorn/base/Budget.h"
#include "vorn/bus/CardReplies.h"

#include <unistd.h>

#include <algorithm>

namespace {

/// The reply limit counts polling reads, not time: about 60 ms on the board, 50 ms on a PC. A
/// 17-byte reply takes 0.4 ms at 460800 baud.
constexpr std::uint32_t kReplyReads = 150000;
/// Identification and handshake make the controller ask all cards, or wake up.
constexpr std::uint32_t kLongReplyReads = 300000;

constexpr std::size_t kReadSize = 255;

/// Where so many polls of a card wait, no further one is queued: one would do. A lost link leaves a
/// poll behind in each queue that its pass did not reach, and since every pass adds as many as it
/// serves, they would add up for as long as an adapter is flaky. So many of the longest fit.
constexpr std::size_t kMostPollsWaiting = BytesAt(MARK::kBusIsBehind) / (bus::kLongestRequest + 1);

constexpr int kPauseAfterConnectS = 1;
constexpr int kPauseAfterFailureS = 2;

// Replies made by the exchange itself, never seen on the wire.
constexpr const char* kTimeoutReply = "TME";
/// Classified as a good reply, dispatched on its 'L', and ignored.
constexpr const char* kEmptyRequestReply = "LCE";

std::uint32_t ReadLimitFor(const QList& request) {
  return bus::IsSlow(request) ? kLongReplyReads : kReplyReads;
}

}  // namespace

SERIAL_INTERFACE::SERIAL_INTERFACE(const std::string& devicePath, PORT_SELECTION selection,
                                   LINK_STATUS linkStatus, const LOGGER& logger,
                                   VOQUEUE& inboundQueue, CARD_TABLE& cards, bool polling,
                                   bool autoDiscover)
    : m_logger(logger),
      m_devicePath(devicePath),
      m_linkStatus(linkStatus),
      m_selection(selection),
      m_inboundQueue(inboundQueue),
      m_lineBacklog(BytesAt(MARK::kLinesAreLost)),
      m_cards(cards),
      m_polling(polling),
      m_autoDiscover(autoDiscover) {
  SetThreadType(kIntervalDriven, 1);
}

SERIAL_INTERFACE::~SERIAL_INTERFACE() {
  Terminate();
}

// --- the pass -----------------------------------------------------------------------------------

bool SERIAL_INTERFACE::OnTask() {
  PauseUs(m_threadDelayUs);
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
  // Two noisy analogue cards can outrun the master loop, which takes one line a pass, for good.
  if (m_polling && m_inboundQueue.Bytes() < BytesAt(MARK::kPollingPauses)) {
    QueuePollFrames();
  }
  return true;
}

void SERIAL_INTERFACE::Connect() {
  if (!Init()) {
    m_linkStatus = kNotConnected;
    sleepsec(kPauseAfterFailureS);
    return;
  }
  m_hasCarriedPass = false;
  m_isServing = !m_isLostInOnePass;
  if (m_autoDiscover) {
    // One that waits since the link was lost before is enough.
    if (m_questionsWaiting.at(kGeneralQueue) == 0) {
      QueueQuestion(kGeneralQueue, bus::IdentificationRequest());
    }
    sleepsec(kPauseAfterConnectS);
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
    if (!Exchange(body)) {
      return false;
    }
  }
  return true;
}

/// Sends one request and takes its reply. False when the link is lost; the request is lost with it.
bool SERIAL_INTERFACE::Exchange(const QList& request) {
  const QList reply = Comm2HW(request);
  if (m_closeRequested) {
    return false;
  }
  switch (GetQListError(reply)) {
    case kNoError: {
      const CARD_REPLY body(reply.begin(), reply.end());
      if (TakeReply(m_cards, body)) {
        WriteToQueue(body.data());
      }
      return true;
    }
    case kTimeout:
      m_logger.WriteLog(kInf, "comm timeout " + m_devicePath);
      LoseLink();
      return false;
    default:
      return true;
  }
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

void SERIAL_INTERFACE::QueuePollFrames() {
  for (std::size_t address = 0; address < bus::kAddresses; ++address) {
    bool polled = false;
    const QList frame = m_cards.With(address, [&](const PERIFCARD& card) {
      polled = card.stateWord == kInputCard && card.pollFlag != 0;
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
  std::atomic<std::size_t>& waiting = m_questionsWaiting.at(number);
  if (bus::IsQuestion(body) && waiting > 0) {
    --waiting;
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

bool SERIAL_INTERFACE::IsBehind() {
  return m_isServing && std::any_of(m_busQueues.begin(), m_busQueues.end(), [](VOQUEUE& queue) {
           return queue.Bytes() >= BytesAt(MARK::kBusIsBehind);
         });
}

// --- the exchange -------------------------------------------------------------------------------

QList SERIAL_INTERFACE::Comm2HW(const QList& body) {
  std::array<std::uint8_t, kReadSize> stale{};
  [[maybe_unused]] const ssize_t discarded = read(m_port.Get(), stale.data(), stale.size());
  if (body.empty()) {
    return Convert_CharBuff2QList(kEmptyRequestReply);
  }
  if (body.size() > bus::kLongestRequest) {
    return {};
  }
  SendFrame(body);
  return AwaitReply(ReadLimitFor(body));
}

void SERIAL_INTERFACE::SendFrame(const QList& body) {
  std::array<std::uint8_t, bus::kLongestRequest + 1> frame{};
  frame[0] = static_cast<std::uint8_t>(body.size());
  Convert_QList2BinBuff(body, frame.data() + 1);
  m_waiting = true;
  m_receiveCount = 0;
  const std::size_t length = body.size() + 1;
  std::size_t written = 0;
  while (written < length) {
    const ssize_t count = write(m_port.Get(), frame.data() + written, length - written);
    if (count == -1) {
      // The reply is awaited all the same; the timeout that follows closes the port.
      m_logger.WriteLog(kErr, "unable to  write to " + m_devicePath);
      return;
    }
    written += static_cast<std::size_t>(count);
  }
}

QList SERIAL_INTERFACE::AwaitReply(std::uint32_t readLimit) {
  std::array<std::uint8_t, kReadSize> chunk{};
  std::uint32_t reads = 0;
  while (m_waiting && reads < readLimit && !m_closeRequested) {
    const ssize_t count = read(m_port.Get(), chunk.data(), chunk.size());
    if (count > 0) {
      AppendReceived(chunk.data(), static_cast<std::size_t>(count));
    }
    ++reads;
  }
  // A reply completed by the very last permitted read is late.
  if (m_waiting || reads >= readLimit) {
    return Convert_CharBuff2QList(kTimeoutReply);
  }
  const std::size_t length = m_receiveBuffer[0];
  if (length >= m_receiveBuffer.size()) {
    return {};  // more than was kept: no reply, and all of it is off the line
  }
  return {m_receiveBuffer.begin() + 1,
          m_receiveBuffer.begin() + 1 + static_cast<std::ptrdiff_t>(length)};
}

/// Counts all bytes, keeps those that fit.
void SERIAL_INTERFACE::AppendReceived(const std::uint8_t* bytes, std::size_t count) {
  const std::size_t used = std::min<std::size_t>(m_receiveCount, m_receiveBuffer.size());
  const std::size_t kept = std::min(count, m_receiveBuffer.size() - used);
  std::copy_n(bytes, kept, m_receiveBuffer.begin() + static_cast<std::ptrdiff_t>(used));
  m_receiveCount += static_cast<std::uint32_t>(count);
  if (m_receiveCount > m_receiveBuffer[0]) {
    m_waiting = false;
  }
}
