#include "tests/soak/Clients.h"

#include <exception>

namespace soak {

namespace {

using std::chrono::milliseconds;

/// The operator's longest wait: a line behind one that waits for cards, each for a second or two.
constexpr milliseconds kOperatorLimit{30'000};
/// While the bus is calm an exchange takes milliseconds, or a second behind the operator's.
constexpr milliseconds kMachineLimit{8'000};
/// Between two looks at whether to come back.
constexpr milliseconds kAwayStep{20};

constexpr const char* kPrompt = ">\r\n\r";

struct QUESTION {
  std::uint64_t every;  // of so many turns it is asked in one
  const char* command;
  const char* expected;  // in the reply, whether or not a card answers
};
/// The first whose turn it is. Commands that wait for a card stop the master loop for a second.
constexpr QUESTION kQuestions[] = {
    {997, "REBOOT:E", "CI"},
    {499, "GETANMASK:F", "CI"},
    {251, "SETSCB3:0=7F", "CI"},
    {31, "HELP", "END OF CAE"},
    {13, "DISCOVER", "DTI:0xF:"},
    {7, "POLLSTATE", "CIA: GLOBAL POLLING IS"},
    {5, "NONSENSE", "CIE: UNKNOWN COMMAND"},
    {1, "DRVVER", "CIA: DRIVER VERSION"},
};

/// A line that the daemon refuses, and how many of them are sent at a time where many are.
const std::string kNonsense = "nonsense\r\n";
constexpr int kBabble = 64;

constexpr const char* kListedCards[] = {
    "DTI:0x0:6 channel RC", "DTI:0x1:3 channel DC", "DTI:0x3:16 channel", "DTI:0x5:16 channel",
    "DTI:0x8:KEYMX",        "DTI:0x9:IR",           "DTI:0xE:ALPHA",      "DTI:0xF:6 channel AN"};

std::string Hex(unsigned int value) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  return {kDigits[value >> 4U & 0xFU], kDigits[value & 0xFU]};
}

}  // namespace

void WEATHER::Storm() {
  const std::lock_guard lock(m_mutex);
  if (m_calmSince) {
    m_lostInCalm += LostLinks() - m_lostBefore;
  }
  m_calmSince.reset();
}

void WEATHER::Calm() {
  const std::lock_guard lock(m_mutex);
  m_lostBefore = LostLinks();
  m_calmSince = std::chrono::steady_clock::now();
}

bool WEATHER::IsCalmSince(TIME time) const {
  const std::lock_guard lock(m_mutex);
  return m_calmSince && *m_calmSince <= time && LostLinks() == m_lostBefore;
}

int WEATHER::LostInCalm() const {
  const std::lock_guard lock(m_mutex);
  return m_lostInCalm;
}

int WEATHER::LostLinks() const {
  return static_cast<int>(m_log.LinesWith("comm timeout").size());
}

void CLIENT::Start() {
  m_thread = std::thread([this] { Run(); });
}

void CLIENT::Leave() {
  m_isAway = true;
  m_isDropped = true;
}

void CLIENT::Stop() {
  m_isStopped = true;
  if (m_thread.joinable()) {
    m_thread.join();
  }
}

TIME CLIENT::LastServed() const {
  const std::lock_guard lock(m_mutex);
  return m_lastServed;
}

std::string CLIENT::Failure() const {
  const std::lock_guard lock(m_mutex);
  return m_failure;
}

void CLIENT::Fail(const std::string& why) {
  const std::lock_guard lock(m_mutex);
  m_failure = why;
}

support::TCP_CLIENT CLIENT::ConnectTo(int port, const std::string& greeting) {
  while (true) {
    support::TCP_CLIENT client(port);
    // What the client before did not get may come first.
    if (client.WaitForFirstByte() && client.ReadUntil(greeting).ends_with(greeting)) {
      return client;
    }
  }
}

void CLIENT::Run() {
  while (!m_isStopped && Failure().empty()) {
    try {
      RunOnce();
    } catch (const std::exception& error) {
      Fail(error.what());
    }
  }
}

void CLIENT::RunOnce() {
  if (m_isDropped.exchange(false)) {
    Reset();
    while (m_isAway && !m_isStopped) {
      std::this_thread::sleep_for(kAwayStep);
    }
    Connect();
  }
  const TIME begin = std::chrono::steady_clock::now();
  const std::string missing = Exchange();
  if (missing.empty()) {
    ++m_exchanges;
    const std::lock_guard lock(m_mutex);
    m_lastServed = begin;
    return;
  }
  ++m_spoiled;
  if (m_weather.IsCalmSince(begin) && !m_isStopped) {
    Fail("no answer although nothing was wrong: " + missing);
  }
}

void OPERATOR::Connect() {
  m_cae.emplace(ConnectTo(m_port, "(Type HELP for help)\r\n>\r\n\r"));
}

void OPERATOR::Reset() {
  if (m_cae) {
    m_cae->Reset();
  }
}

std::string OPERATOR::Ask(const std::string& command, const std::string& expected,
                          std::string& reply) {
  m_cae->Send(command + "\r\n");
  reply = m_cae->ReadUntil(expected, kOperatorLimit);
  if (!reply.ends_with(expected)) {
    throw std::runtime_error("CAE did not answer " + command);
  }
  const std::string rest = m_cae->ReadUntil(kPrompt, kOperatorLimit);
  reply += rest;
  if (!rest.ends_with(kPrompt)) {
    throw std::runtime_error("CAE did not end its answer to " + command);
  }
  return {};
}

std::string OPERATOR::FindCards() {
  std::string reply;
  Ask("FORCEDISCOVER", "FORCED DISCOVER LIST:", reply);
  for (const char* card : kListedCards) {
    if (reply.find(card) == std::string::npos) {
      return std::string("the line ") + card;
    }
  }
  return {};
}

std::string OPERATOR::Exchange() {
  if (m_isRediscovery) {
    const std::string missing = FindCards();
    if (missing.empty()) {
      m_isRediscovery = false;
      ++m_rediscoveries;
    }
    return missing;
  }
  ++m_turn;
  std::string reply;
  for (const QUESTION& question : kQuestions) {
    if (m_turn % question.every == 0) {
      return Ask(question.command, question.expected, reply);
    }
  }
  return {};
}

void MACHINE::Connect() {
  m_io.emplace(ConnectTo(m_ioPort, "VORN IO interface is ready\r\n\r"));
  m_mon.emplace(ConnectTo(m_monPort, "VORN MON interface is ready\r\n\r"));
}

void MACHINE::Reset() {
  if (m_io) {
    m_io->Reset();
    m_mon->Reset();
  }
}

std::string MACHINE::Exchange() {
  constexpr unsigned int kValues = 0xFE;  // 00 and FF are what cards start with
  const std::string value = Hex(++m_turn % kValues + 1);
  const std::string output = "a5b1d" + value;
  const std::string input = "a3b0d" + value;
  std::string commands = output + "\r\n";
  if (m_turn % 16 == 0) {
    commands += "a0b4d" + value + "\r\na1b0d" + value + "\r\naElPAp0002tTurn " + value +
                "\r\na9sHS43" + value + "\r\n" + kNonsense;
  }
  if (m_babbles) {
    for (int i = 0; i < kBabble; ++i) {
      commands += kNonsense;
    }
  }
  m_io->Send(commands);
  static_cast<void>(m_rack.Command("set 3.0 " + value));  // refused while the card is pulled
  if (!m_rack.WaitForValue("card 5 block 1", value, kMachineLimit)) {
    return output + " at the rack";
  }
  if (!m_io->ReadUntil(input, kMachineLimit).ends_with(input)) {
    return input + " on IO";
  }
  const std::string seen = m_mon->ReadUntil(input, kMachineLimit);
  if (!seen.ends_with(input)) {
    return input + " on MON";
  }
  if (seen.find(output) == std::string::npos &&
      !m_mon->ReadUntil(output, kMachineLimit).ends_with(output)) {
    return output + " on MON";
  }
  return {};
}

}  // namespace soak
