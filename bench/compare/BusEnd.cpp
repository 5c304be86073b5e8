#include "bench/compare/BusEnd.h"

#include <fcntl.h>
#include <stdlib.h>
#include <termios.h>

#include <algorithm>

namespace bench {

namespace {

constexpr std::uint8_t kOutput = 0x10;
constexpr std::uint8_t kPoll = 0x20;
constexpr std::uint8_t kIdentification = 0x30;
constexpr std::uint8_t kHandshake = 0x40;
constexpr std::uint8_t kInputData = 0x21;
constexpr std::uint8_t kCardTypes = 0x31;
constexpr std::uint8_t kAccepted = 0x41;

constexpr std::size_t kOutputDataAt = 3;  // code, address, count

/// With the byte that tells its length.
std::size_t AnswerSize(const std::vector<std::uint8_t>& request) {
  switch (request[0]) {
    case kPoll:
      return 5;
    case kIdentification:
      return 2 + BUS_END::kSlots;
    case kHandshake:
      return 6;
    default:
      return 3;
  }
}

}  // namespace

BUS_END::BUS_END(LOOP& loop, std::string linkPath)
    : m_loop(loop),
      m_linkPath(std::move(linkPath)),
      m_master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK)) {
  std::array<char, 64> name{};
  if (m_master.Get() < 0 || grantpt(m_master.Get()) != 0 || unlockpt(m_master.Get()) != 0 ||
      ptsname_r(m_master.Get(), name.data(), name.size()) != 0) {
    FailOf("pseudo-terminal");
  }
  m_near = DESCRIPTOR(open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC));
  termios settings{};
  if (tcgetattr(m_near.Get(), &settings) != 0) {
    FailOf(name.data());
  }
  cfmakeraw(&settings);
  tcsetattr(m_near.Get(), TCSANOW, &settings);
  if (symlink(name.data(), m_linkPath.c_str()) != 0) {
    FailOf(m_linkPath);
  }
  m_loop.Watch(m_master.Get(), [this] { Read(); });
  m_loop.Watch(m_timer.Get(), [this] { WriteDue(); });
}

BUS_END::~BUS_END() {
  m_loop.Forget(m_timer.Get());
  m_loop.Forget(m_master.Get());
  unlink(m_linkPath.c_str());
}

void BUS_END::SetCards(std::uint8_t type, std::size_t count) {
  m_types.fill(0);
  std::fill_n(m_types.begin(), count, type);
  m_inputs.fill(0);
  m_changedAt = m_changeSentAt = TIME();
}

void BUS_END::ChangeInput(std::size_t card, std::uint8_t value) {
  m_changedCard = card;
  m_before = m_inputs.at(card);
  m_inputs.at(card) = value;
  m_changedAt = CLOCK::now();
  m_changeSentAt = TIME();
}

TIME BUS_END::Send(std::string_view bytes) {
  const TIME now = CLOCK::now();
  m_bytes += bytes.size();
  if (write(m_master.Get(), bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
    FailOf("the line takes nothing");
  }
  return now;
}

/// Start bit, eight data bits, stop bit.
NANOSECONDS BUS_END::TimeOf(std::uint64_t bytes, int baud) {
  return baud > 0 ? NANOSECONDS(static_cast<std::int64_t>(bytes) * 10'000'000'000 / baud)
                  : NANOSECONDS(0);
}

void BUS_END::Read() {
  std::array<std::uint8_t, 4096> buffer;  // NOLINT: filled by read
  const ssize_t count = read(m_master.Get(), buffer.data(), buffer.size());
  if (count <= 0) {
    return;
  }
  const TIME now = CLOCK::now();
  m_bytes += static_cast<std::uint64_t>(count);
  m_received.insert(m_received.end(), buffer.begin(), buffer.begin() + count);
  auto begin = m_received.begin();
  while (begin != m_received.end() && m_received.end() - begin > *begin) {
    const auto end = begin + *begin + 1;
    TakeFrame({begin + 1, end}, now);
    begin = end;
  }
  m_received.erase(m_received.begin(), begin);
}

void BUS_END::TakeFrame(std::vector<std::uint8_t> body, TIME now) {
  if (body.empty()) {
    return;
  }
  if (body[0] == kOutput && body.size() > kOutputDataAt && m_handler) {
    m_handler({body[1], {body.begin() + kOutputDataAt, body.end()}, now});
  }
  if (!m_isAnswering) {
    return;
  }
  const TIME askedAt = std::max(now, m_lineFree) + TimeOf(body.size() + 1, m_baud);
  m_lineFree = askedAt + TimeOf(AnswerSize(body), m_baud);
  m_answers.push_back({m_lineFree, askedAt, std::move(body)});
  if (m_baud == 0) {
    WriteDue();
  } else {
    m_timer.Set(m_answers.front().due);
  }
}

void BUS_END::WriteDue() {
  while (!m_answers.empty() && m_answers.front().due <= CLOCK::now()) {
    Write(m_answers.front());
    m_answers.pop_front();
  }
  m_timer.Set(m_answers.empty() ? TIME::max() : m_answers.front().due);
}

void BUS_END::Write(const ANSWER& answer) {
  const std::vector<std::uint8_t>& request = answer.request;
  const std::uint8_t address = request.size() > 1 ? request[1] : std::uint8_t{0};
  std::vector<std::uint8_t> body = {kAccepted, address};
  bool hasChange = false;
  if (request[0] == kPoll) {
    const std::size_t card = address % kSlots;
    std::uint8_t value = m_inputs.at(card);
    if (card == m_changedCard && m_changeSentAt == TIME() && m_changedAt != TIME()) {
      hasChange = m_changedAt <= answer.askedAt;
      value = hasChange ? value : m_before;
    }
    body = {kInputData, address, value, 0};
  } else if (request[0] == kIdentification) {
    ++m_identifications;
    body.assign({kCardTypes});
    body.insert(body.end(), m_types.begin(), m_types.end());
  } else if (request[0] == kHandshake) {
    ++m_handshakes;
    body = {kHandshake, '2', '.', '0', '4'};
  }
  body.insert(body.begin(), static_cast<std::uint8_t>(body.size()));
  const TIME sent = Send({reinterpret_cast<const char*>(body.data()), body.size()});
  if (hasChange) {
    m_changeSentAt = sent;
  }
}

}  // namespace bench
