#include "tests/support/unit/FarEnd.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace vorn {

namespace unit {

FAR_END::~FAR_END() {
  ExpectDone();
}

// --- the script ---------------------------------------------------------------------------------

void FAR_END::List(const std::list<std::string>& paths) {
  const std::lock_guard lock(m_lock);
  m_listing = paths;
}

void FAR_END::RefuseSettings(int error) {
  const std::lock_guard lock(m_lock);
  m_settingsError = error;
}

void FAR_END::Expect(const BYTES& frame, const BYTES& answer) {
  ExpectInReads(frame, answer.empty() ? READS{} : READS{answer});
}

void FAR_END::ExpectInReads(const BYTES& frame, const READS& answer, std::uint32_t firstRead) {
  const std::lock_guard lock(m_lock);
  m_script.push_back({frame, answer, firstRead});
}

void FAR_END::AnswerWith(RESPONDER responder) {
  const std::lock_guard lock(m_lock);
  m_responder = std::move(responder);
}

void FAR_END::SendUnasked(const BYTES& bytes) {
  const std::lock_guard lock(m_lock);
  m_unread.insert(m_unread.end(), bytes.begin(), bytes.end());
}

void FAR_END::TakeAtMost(std::size_t bytes) {
  const std::lock_guard lock(m_lock);
  m_writeLimit = bytes;
}

void FAR_END::PullOut() {
  const std::lock_guard lock(m_lock);
  m_isPulledOut = true;
}

// --- what happened ------------------------------------------------------------------------------

int FAR_END::Searches() const {
  const std::lock_guard lock(m_lock);
  return m_searches;
}

int FAR_END::Openings() const {
  const std::lock_guard lock(m_lock);
  return m_openings;
}

std::vector<BYTES> FAR_END::Requests() const {
  const std::lock_guard lock(m_lock);
  return m_requests;
}

std::uint32_t FAR_END::ReadsSinceRequest() const {
  const std::lock_guard lock(m_lock);
  return m_reads;
}

std::size_t FAR_END::Writes() const {
  const std::lock_guard lock(m_lock);
  return m_writes;
}

void FAR_END::ExpectDone() const {
  const std::lock_guard lock(m_lock);
  EXPECT_EQ(m_received, BYTES()) << "part of a frame: " << ToHex(m_received);
  for (const EXCHANGE& exchange : m_script) {
    ADD_FAILURE() << "this frame did not come: " << ToHex(exchange.frame);
  }
}

// --- the line, for the code under test ----------------------------------------------------------

std::list<std::string> FAR_END::Search() {
  for (FAR_END* const end : std::exchange(m_aside, {})) {
    end->BeClosed();
  }
  const std::lock_guard lock(m_lock);
  ++m_searches;
  return m_listing;
}

bool FAR_END::Open(const std::string& path) {
  if (m_open != nullptr) {
    std::exchange(m_open, nullptr)->BeClosed();
  }
  FAR_END* end = path == m_path ? this : nullptr;
  for (FAR_END* const other : m_others) {
    end = path == other->m_path ? other : end;
  }
  m_open = end != nullptr && end->BeOpened() ? end : nullptr;
  return m_open != nullptr;
}

int FAR_END::SetUp() {
  return m_open->m_settingsError;
}

ssize_t FAR_END::Read(std::uint8_t* bytes, std::size_t count) {
  errno = EBADF;
  return m_open == nullptr ? -1 : m_open->Give(bytes, count);
}

ssize_t FAR_END::Write(const std::uint8_t* bytes, std::size_t count) {
  errno = EBADF;
  return m_open == nullptr ? -1 : m_open->Take(bytes, count);
}

void FAR_END::Close() {
  FAR_END* const end = std::exchange(m_open, nullptr);
  if (end != nullptr && end->m_settingsError != 0) {
    m_aside.push_back(end);
  } else if (end != nullptr) {
    end->BeClosed();
  }
}

// --- the adapter --------------------------------------------------------------------------------

bool FAR_END::BeOpened() {
  const std::lock_guard lock(m_lock);
  m_openings += m_isPulledOut ? 0 : 1;
  return !m_isPulledOut;
}

void FAR_END::BeClosed() {
  const std::lock_guard lock(m_lock);
  --m_openings;
}

ssize_t FAR_END::Give(std::uint8_t* bytes, std::size_t count) {
  const std::lock_guard lock(m_lock);
  ++m_reads;
  if (!m_isPulledOut && m_unread.empty() && m_reads >= m_firstRead && !m_answer.empty()) {
    m_unread = std::move(m_answer.front());
    m_answer.pop_front();
  }
  if (m_isPulledOut || m_unread.empty()) {
    errno = m_isPulledOut ? EIO : EAGAIN;
    return -1;
  }
  const auto end = m_unread.begin() + static_cast<std::ptrdiff_t>(std::min(count, m_unread.size()));
  std::copy(m_unread.begin(), end, bytes);
  const ssize_t given = end - m_unread.begin();
  m_unread.erase(m_unread.begin(), end);
  return given;
}

ssize_t FAR_END::Take(const std::uint8_t* bytes, std::size_t count) {
  const std::lock_guard lock(m_lock);
  ++m_writes;
  m_reads = 0;
  if (m_isPulledOut) {
    errno = EIO;
    return -1;
  }
  const std::size_t taken = std::min(count, m_writeLimit);
  m_received.insert(m_received.end(), bytes, bytes + taken);
  while (!m_received.empty() && m_received.size() > m_received.front()) {
    const auto end = m_received.begin() + 1 + m_received.front();
    const BYTES frame(m_received.begin(), end);
    m_received.erase(m_received.begin(), end);
    TakeFrame(frame);
  }
  return static_cast<ssize_t>(taken);
}

void FAR_END::TakeFrame(const BYTES& frame) {
  m_requests.push_back(frame);
  m_answer.clear();
  m_firstRead = 1;
  if (m_script.empty()) {
    if (!m_responder) {
      ADD_FAILURE() << "nobody expects this frame: " << ToHex(frame);
      return;
    }
    m_answer = {m_responder(BYTES(frame.begin() + 1, frame.end()))};
    return;
  }
  const EXCHANGE exchange = m_script.front();
  m_script.pop_front();
  EXPECT_EQ(ToHex(frame), ToHex(exchange.frame));
  m_answer.assign(exchange.answer.begin(), exchange.answer.end());
  m_firstRead = exchange.firstRead;
}

}  // namespace unit

}  // namespace vorn
