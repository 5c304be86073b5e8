#include "vorn/bus/SERIAL_INTERFACE.h"

#include "thread/Pause.h"

#include <unistd.h>

#include <algorithm>

namespace {

constexpr char kIdentificationRequest = '0';
constexpr char kHandshakeRequest = '@';

/// The reply limit counts polling reads, not time: about 60 ms on the board, 50 ms on a PC. A
/// 17-byte reply takes 0.4 ms at 460800 baud.
constexpr std::uint32_t kReplyReads = 150000;
/// Identification and handshake make the controller ask all cards, or wake up.
constexpr std::uint32_t kLongReplyReads = 300000;

constexpr std::size_t kReadSize = 255;
/// With its length byte a frame is built in 255 bytes.
constexpr std::size_t kLongestBody = 254;

/// While so many lines wait for the master loop, which takes one a pass, no card is polled: what
/// changes meanwhile is reported by a later poll. Two noisy analogue cards can outrun the loop for
/// good.
constexpr std::size_t kInputBacklogLimit = 1024;

/// Where so many messages wait for a card, no further poll of it is queued: one would do. A lost
/// link leaves a poll behind in each queue that its pass did not reach, and since every pass adds
/// as many as it serves, they would add up for as long as an adapter is flaky.
constexpr std::size_t kPollBacklogLimit = 16;

constexpr int kPauseAfterConnectS = 1;
constexpr int kPauseAfterFailureS = 2;

// Replies made by the exchange itself, never seen on the wire.
constexpr const char* kTimeoutReply = "TME";
/// Classified as a good reply, dispatched on its 'L', and ignored.
constexpr const char* kEmptyRequestReply = "LCE";

std::uint32_t ReadLimitFor(char request) {
  return request == kIdentificationRequest || request == kHandshakeRequest ? kLongReplyReads
                                                                           : kReplyReads;
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
  if (m_polling && m_inboundQueue.Size() < kInputBacklogLimit) {
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
  if (m_autoDiscover) {
    m_busQueues[kGeneralQueue].ToQueue({kIdentificationRequest});
    sleepsec(kPauseAfterConnectS);
  }
}

/// At most one message of each queue, so that no card can starve the others.
void SERIAL_INTERFACE::ServeBusQueues() {
  for (VOQUEUE& queue : m_busQueues) {
    if (!queue.IsEmpty() && !Exchange(queue.DeQueue())) {
      return;
    }
  }
}

/// Sends one request and takes its reply. False when the link is lost; the request is lost with it.
bool SERIAL_INTERFACE::Exchange(QList body) {
  const QList reply = Comm2HW(std::move(body));
  if (m_closeRequested) {
    return false;
  }
  switch (GetQListError(reply)) {
    case kNoError:
      TakeReply(REPLY(reply.begin(), reply.end()));
      return true;
    case kTimeout:
      m_logger.WriteLog(kInf, "comm timeout " + m_devicePath);
      LoseLink();
      return false;
    default:
      return true;
  }
}

void SERIAL_INTERFACE::QueuePollFrames() {
  for (std::size_t address = 0; address < kBusAddresses; ++address) {
    bool polled = false;
    const QList frame = m_cards.With(address, [&](const PERIFCARD& card) {
      polled = card.stateWord == kInputCard && card.pollFlag != 0;
      return polled ? card.pollFrame : QList();
    });
    if (polled && m_busQueues[address].Size() < kPollBacklogLimit) {
      m_busQueues[address].ToQueue(frame);
    }
  }
}

std::size_t SERIAL_INTERFACE::BusBacklog() {
  std::size_t longest = 0;
  for (VOQUEUE& queue : m_busQueues) {
    longest = std::max(longest, queue.Size());
  }
  return longest;
}

// --- the exchange -------------------------------------------------------------------------------

QList SERIAL_INTERFACE::Comm2HW(QList body) {
  std::array<std::uint8_t, kReadSize> stale{};
  [[maybe_unused]] const ssize_t discarded = read(m_port.Get(), stale.data(), stale.size());
  if (body.empty()) {
    return Convert_CharBuff2QList(kEmptyRequestReply);
  }
  if (body.size() > kLongestBody) {
    return {};
  }
  SendFrame(body);
  return AwaitReply(ReadLimitFor(body.front()));
}

void SERIAL_INTERFACE::SendFrame(const QList& body) {
  std::array<std::uint8_t, kLongestBody + 1> frame{};
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
