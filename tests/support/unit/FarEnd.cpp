#include "tests/support/unit/FarEnd.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <utility>

namespace unit {

namespace {

constexpr int kLineLimitMs = 20000;  // for bytes to cross the pseudo-terminal

std::mutex registryLock;         // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)
std::vector<FAR_END*> registry;  // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)
std::atomic<bool> anyRegistered{
    false};  // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)

// The system's own calls: this program's replacements would come back here.
ssize_t SystemRead(int descriptor, std::uint8_t* bytes, std::size_t count) {
  return syscall(SYS_read, descriptor, bytes, count);
}

ssize_t SystemWrite(int descriptor, const std::uint8_t* bytes, std::size_t count) {
  return syscall(SYS_write, descriptor, bytes, count);
}

}  // namespace

FAR_END::FAR_END() : m_master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
  std::array<char, 64> path{};
  struct stat status {};
  if (m_master < 0 || grantpt(m_master) != 0 || unlockpt(m_master) != 0 ||
      ptsname_r(m_master, path.data(), path.size()) != 0) {
    throw std::runtime_error("no pseudo-terminal for the test");
  }
  m_path = path.data();
  m_slave = open(path.data(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (m_slave < 0 || fstat(m_slave, &status) != 0) {
    throw std::runtime_error("cannot open " + m_path);
  }
  m_device = status.st_rdev;
  const std::lock_guard lock(registryLock);
  registry.push_back(this);
  anyRegistered = true;
}

FAR_END::~FAR_END() {
  {
    const std::lock_guard lock(registryLock);
    std::erase(registry, this);
    anyRegistered = !registry.empty();
  }
  ExpectDone();
  close(m_slave);
  if (m_master >= 0) {
    close(m_master);
  }
}

FAR_END* FAR_END::Of(int descriptor) {
  struct stat status {};
  if (!anyRegistered || fstat(descriptor, &status) != 0 || !S_ISCHR(status.st_mode)) {
    return nullptr;
  }
  const std::lock_guard lock(registryLock);
  const auto found = std::find_if(registry.begin(), registry.end(), [&](const FAR_END* end) {
    return end->m_device == status.st_rdev;
  });
  return found == registry.end() ? nullptr : *found;
}

// --- the script ---------------------------------------------------------------------------------

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
  Deliver(bytes);
}

void FAR_END::TakeAtMost(std::size_t bytes) {
  const std::lock_guard lock(m_lock);
  m_writeLimit = bytes;
}

void FAR_END::PullOut() {
  const std::lock_guard lock(m_lock);
  close(std::exchange(m_master, -1));
}

// --- what happened ------------------------------------------------------------------------------

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

bool FAR_END::IsDone() const {
  const std::lock_guard lock(m_lock);
  return m_script.empty() && m_received.empty();
}

void FAR_END::ExpectDone() const {
  const std::lock_guard lock(m_lock);
  EXPECT_EQ(m_received, BYTES()) << "part of a frame: " << ToHex(m_received);
  for (const EXCHANGE& exchange : m_script) {
    ADD_FAILURE() << "this frame did not come: " << ToHex(exchange.frame);
  }
}

termios FAR_END::Settings() const {
  termios settings{};
  tcgetattr(m_slave, &settings);
  return settings;
}

std::vector<int> FAR_END::Openings() const {
  std::vector<int> openings;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    const int descriptor = std::stoi(entry.path().filename().string());
    if (descriptor != m_slave && std::filesystem::read_symlink(entry.path(), gone) == m_path) {
      openings.push_back(descriptor);
    }
  }
  return openings;
}

// --- inside the calls of the code under test ----------------------------------------------------

bool FAR_END::BeforeRead() {
  const std::lock_guard lock(m_lock);
  ++m_reads;
  if (m_master < 0 || m_unread > 0) {
    return true;
  }
  if (m_reads < m_firstRead || m_answer.empty()) {
    return false;
  }
  const BYTES bytes = m_answer.front();
  m_answer.pop_front();
  if (bytes.empty()) {
    return false;
  }
  Deliver(bytes);
  return true;
}

void FAR_END::AfterRead(ssize_t count) {
  const std::lock_guard lock(m_lock);
  if (count > 0) {
    m_unread -= std::min(m_unread, static_cast<std::size_t>(count));
  }
}

std::size_t FAR_END::BeforeWrite(std::size_t count) {
  const std::lock_guard lock(m_lock);
  return std::min(count, m_writeLimit);
}

void FAR_END::AfterWrite(ssize_t count) {
  const std::lock_guard lock(m_lock);
  ++m_writes;
  m_reads = 0;
  if (count <= 0 || m_master < 0) {
    return;
  }
  auto left = static_cast<std::size_t>(count);
  while (left > 0) {
    pollfd line{m_master, POLLIN, 0};
    std::array<std::uint8_t, 256> bytes{};
    const ssize_t taken = poll(&line, 1, kLineLimitMs) == 1
                              ? SystemRead(m_master, bytes.data(), std::min(left, bytes.size()))
                              : -1;
    if (taken <= 0) {
      ADD_FAILURE() << "what was written does not arrive";
      return;
    }
    m_received.insert(m_received.end(), bytes.begin(), bytes.begin() + taken);
    left -= static_cast<std::size_t>(taken);
  }
  while (!m_received.empty() && m_received.size() > m_received.front()) {
    const auto end = m_received.begin() + 1 + m_received.front();
    const BYTES frame(m_received.begin(), end);
    m_received.erase(m_received.begin(), end);
    TakeFrame(frame);
  }
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

/// Puts the bytes on the line and waits until they can be read, so that the next read finds all.
void FAR_END::Deliver(const BYTES& bytes) {
  if (SystemWrite(m_master, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
    ADD_FAILURE() << "the line does not take " << bytes.size() << " bytes";
    return;
  }
  m_unread += bytes.size();
  int arrived = 0;
  for (int waitedMs = 0; static_cast<std::size_t>(arrived) < m_unread; ++waitedMs) {
    if (waitedMs == kLineLimitMs || syscall(SYS_ioctl, m_slave, FIONREAD, &arrived) != 0) {
      ADD_FAILURE() << "what was sent does not arrive";
      return;
    }
    pollfd nothing{-1, 0, 0};
    poll(&nothing, 1, waitedMs < 10 ? 0 : 1);
  }
}

}  // namespace unit
