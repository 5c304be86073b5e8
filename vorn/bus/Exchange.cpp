#include "vorn/bus/Exchange.h"

#include "vorn/bus/CardBus.h"

#include <sched.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>

namespace vorn {

namespace {

/// The reply limit counts polling reads, not time: about 60 ms on the board, 50 ms on a PC. A
/// 17-byte reply takes 0.4 ms at 460800 baud.
constexpr std::uint32_t kReplyReads = 150000;
/// Identification and handshake make the controller ask all cards, or wake up.
constexpr std::uint32_t kLongReplyReads = 300000;

/// Between so many reads that bring nothing whoever else wants to run may: on a board of one core
/// the clients' commands would else wait until the scheduler takes it away. Some 5 us.
constexpr std::uint32_t kReadsPerYield = 16;
/// Who is away so long has met somebody who computes all the time. That one is to get no more than
/// the scheduler gives it: the reads take as long first.
constexpr std::chrono::milliseconds kLongYield{1};

constexpr std::size_t kReadSize = 255;

/// The reply's length byte and its body; the longest reply in use has 17 bytes.
constexpr std::size_t kReceiveBufferSize = 136;

}  // namespace

bool EXCHANGE::Send(const QList& body) {
  std::array<std::uint8_t, kReadSize> stale{};
  m_line.Read(stale.data(), stale.size());
  m_readLimit = 0;
  if (body.empty() || body.size() > bus::kLongestRequest) {
    return true;
  }
  m_readLimit = bus::IsSlow(body) ? kLongReplyReads : kReplyReads;
  std::array<std::uint8_t, bus::kLongestRequest + 1> frame{};
  frame[0] = static_cast<std::uint8_t>(body.size());
  Convert_QList2BinBuff(body, frame.data() + 1);
  const std::size_t length = body.size() + 1;
  for (std::size_t written = 0; written < length;) {
    const ssize_t count = m_line.Write(frame.data() + written, length - written);
    if (count <= 0) {
      return false;
    }
    written += static_cast<std::size_t>(count);
  }
  return true;
}

ANSWER EXCHANGE::Await(const SHARED_FIELD<bool>& isGivenUp) {
  if (m_readLimit == 0) {
    return {OUTCOME::kRefused, {}};
  }
  std::array<std::uint8_t, kReceiveBufferSize> received{};
  std::array<std::uint8_t, kReadSize> chunk{};
  std::size_t total = 0;  // those not kept included
  std::uint32_t reads = 0;
  m_keptSince = std::chrono::steady_clock::now();
  while (total <= received[0] && reads < m_readLimit && !isGivenUp) {
    const ssize_t count = m_line.Read(chunk.data(), chunk.size());
    ++reads;
    if (count > 0) {
      const std::size_t used = std::min(total, received.size());
      const std::size_t kept = std::min(static_cast<std::size_t>(count), received.size() - used);
      std::copy_n(chunk.begin(), kept, received.begin() + static_cast<std::ptrdiff_t>(used));
      total += static_cast<std::size_t>(count);
    } else if (reads % kReadsPerYield == 0) {
      LetOthersRun();
    }
  }
  const std::uint8_t length = received[0];
  // A reply completed by the very last permitted read is late.
  if (total <= length || reads >= m_readLimit) {
    return {OUTCOME::kTimeout, {}};
  }
  if (length >= received.size()) {
    return {OUTCOME::kRefused, {}};  // more than was kept; all of it is off the line
  }
  ANSWER answer{OUTCOME::kReply, QList(received.begin() + 1, received.begin() + 1 + length)};
  if (const QLIST_ERROR error = GetQListError(answer.reply); error != kNoError) {
    answer.outcome = error == kTimeout ? OUTCOME::kTimeout : OUTCOME::kRefused;
  }
  return answer;
}

void EXCHANGE::LetOthersRun() {
  const auto now = std::chrono::steady_clock::now();
  m_debt -= std::min(m_debt, now - m_keptSince);
  m_keptSince = now;
  if (m_debt.count() > 0) {
    return;
  }
  sched_yield();
  m_keptSince = std::chrono::steady_clock::now();
  if (m_keptSince - now >= kLongYield) {
    m_debt = m_keptSince - now;
  }
}

}  // namespace vorn
