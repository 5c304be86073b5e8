#include "tests/soak/Clients.h"

#include <exception>
#include <stdexcept>
#include <string_view>

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

constexpr const char* kNonsense = "nonsense";

/// Of a flood so many lines are made at a time, and one output.
constexpr int kBatch = 16;
/// The last output of a flood has a value that none of the others has: from here on.
constexpr unsigned int kLastOutputs = 0x80;
/// Until a flood's last output is at its card, and until all that was sent is taken: behind it are
/// some hundred kB of messages, perhaps a link to be made anew, and a busy machine.
constexpr milliseconds kFloodLimit{120'000};
constexpr milliseconds kFloodStep{10};
constexpr std::size_t kMuch = 65536;

/// What is under way to a client that does not read is to wait in the daemon, not in the kernel,
/// and a flood is to be over soon after its end.
constexpr support::CLIENT_OPTIONS kSmall{
    .smallBuffers = true, .bufferSize = 32768, .sendBufferSize = 32768};

constexpr const char* kListedCards[] = {
    "DTI:0x0:6 channel RC", "DTI:0x1:3 channel DC", "DTI:0x3:16 channel", "DTI:0x5:16 channel",
    "DTI:0x8:KEYMX",        "DTI:0x9:IR",           "DTI:0xE:ALPHA",      "DTI:0xF:6 channel AN"};

std::string Hex(unsigned int value) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  return {kDigits[value >> 4U & 0xFU], kDigits[value & 0xFU]};
}

bool IsOneOf(std::string_view characters, char character) {
  return characters.find(character) != std::string_view::npos;
}

/// Of the same length as the form, in which a '#' stands for any hex digit.
bool HasForm(std::string_view line, std::string_view form) {
  if (line.size() != form.size()) {
    return false;
  }
  for (std::size_t i = 0; i < line.size(); ++i) {
    if (form[i] == '#' ? !IsOneOf("0123456789ABCDEF", line[i]) : form[i] != line[i]) {
      return false;
    }
  }
  return true;
}

/// What the machine sends beside its floods, and what it receives.
bool IsIoLine(const std::string& line) {
  return line == kNonsense || HasForm(line, "a#b#d##") || HasForm(line, "aElPAp0002tTurn ##") ||
         HasForm(line, "a9sHS43##");
}

constexpr std::string_view kReport = "COE:Illegal command -> ";

bool IsCaeLine(const std::string& line) {
  if (line.starts_with(kReport)) {
    return IsIoLine(line.substr(kReport.size()));
  }
  return line.find("COE:") == std::string::npos && line.find("flood") == std::string::npos;
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

support::TCP_CLIENT CLIENT::ConnectTo(int port, const std::string& greeting, std::string& before) {
  while (true) {
    support::TCP_CLIENT client(port, kSmall);
    if (client.WaitForFirstByte()) {
      before = client.ReadUntil(greeting);
      if (before.ends_with(greeting)) {
        return client;
      }
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
      m_isIdle = true;
      std::this_thread::sleep_for(kAwayStep);
    }
    m_isIdle = false;
    Connect();
    ++m_connections;
  }
  m_isIdle = !CanExchange();
  if (m_isIdle) {
    std::this_thread::sleep_for(kAwayStep);
    return;
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

// --- the operator -------------------------------------------------------------------------------

OPERATOR::OPERATOR(int port, const WEATHER& weather)
    : CLIENT(weather), m_port(port), m_lines(std::string(kReport), IsCaeLine) {
}

void OPERATOR::Connect() {
  std::string before;
  m_cae.emplace(ConnectTo(m_port, "(Type HELP for help)\r\n>\r\n\r", before));
  m_lines.Restart();
  m_lines.Take(before);
}

void OPERATOR::Reset() {
  if (m_cae) {
    m_cae->Reset();
  }
}

std::string OPERATOR::Ask(const std::string& command, const std::string& expected,
                          std::string& reply) {
  m_cae->Send(command + "\r\n");
  reply = ReadUntil(expected);
  if (!reply.ends_with(expected)) {
    throw std::runtime_error("CAE did not answer " + command);
  }
  const std::string rest = ReadUntil(kPrompt);
  reply += rest;
  if (!rest.ends_with(kPrompt)) {
    throw std::runtime_error("CAE did not end its answer to " + command);
  }
  return {};
}

std::string OPERATOR::ReadUntil(const std::string& expected) {
  std::string text = m_cae->ReadUntil(expected, kOperatorLimit);
  m_lines.Take(text);
  return text;
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

// --- the monitor --------------------------------------------------------------------------------

MONITOR::MONITOR(int port, const WEATHER& weather)
    : CLIENT(weather),
      m_port(port),
      m_lines("", [this](const std::string& line) { return Note(line); }) {
}

void MONITOR::Connect() {
  std::string before;
  m_mon.emplace(ConnectTo(m_port, "VORN MON interface is ready\r\n\r", before));
  m_lines.Restart();
  m_lines.Take(before);
}

void MONITOR::Reset() {
  if (m_mon) {
    m_mon->Reset();
  }
}

std::string MONITOR::Exchange() {
  m_lines.Take(m_mon->Read(kMuch, kAwayStep));
  if (m_mon->IsEnded()) {
    throw std::runtime_error("MON was closed");
  }
  return {};
}

/// False for a line that nobody can have sent.
bool MONITOR::Note(const std::string& line) {
  if (!IsIoLine(line)) {
    return line == "VORN MON interface is ready";
  }
  const std::lock_guard lock(m_mutex);
  m_lastSeen[line] = ++m_seen;
  m_changed.notify_all();
  return true;
}

std::uint64_t MONITOR::Seen() const {
  const std::lock_guard lock(m_mutex);
  return m_seen;
}

bool MONITOR::WaitForLine(const std::string& line, std::uint64_t since, milliseconds limit) {
  std::unique_lock lock(m_mutex);
  return m_changed.wait_for(lock, limit, [&] {
    const auto found = m_lastSeen.find(line);
    return found != m_lastSeen.end() && found->second > since;
  });
}

// --- the machine --------------------------------------------------------------------------------

void MACHINE::Connect() {
  std::string before;
  m_io.emplace(ConnectTo(m_port, "VORN IO interface is ready\r\n\r", before));
}

void MACHINE::Reset() {
  if (m_io) {
    m_io->Reset();
  }
}

std::string MACHINE::Exchange() {
  if (m_floods) {
    RunFlood();
    return {};
  }
  constexpr unsigned int kValues = 0xFE;  // 00 and FF are what cards start with
  const std::string value = Hex(++m_turn % kValues + 1);
  const std::string output = "a5b1d" + value;
  const std::string input = "a3b0d" + value;
  std::string commands = output + "\r\n";
  if (m_turn % 16 == 0) {
    commands += "a0b4d" + value + "\r\na1b0d" + value + "\r\naElPAp0002tTurn " + value +
                "\r\na9sHS43" + value + "\r\n" + kNonsense + "\r\n";
  }
  const std::uint64_t before = m_monitor.Seen();
  m_io->Send(commands);
  static_cast<void>(m_rack.Command("set 3.0 " + value));  // refused while the card is pulled
  if (!m_rack.WaitForValue("card 5 block 1", value, kMachineLimit)) {
    return output + " at the rack";
  }
  if (!m_io->ReadUntil(input, kMachineLimit).ends_with(input)) {
    return input + " on IO";
  }
  if (!m_monitor.WaitForLine(input, before, kMachineLimit)) {
    return input + " on MON";
  }
  if (!m_monitor.WaitForLine(output, before, kMachineLimit)) {
    return output + " on MON";
  }
  return {};
}

void MACHINE::RunFlood() {
  std::string batch;
  m_isFlooding = true;
  while (m_floods && !IsStopped() && !IsDropped()) {
    if (batch.empty()) {
      batch = NextBatch();
    }
    SendSome(batch);
  }
  m_isFlooding = false;
  // Never a half line.
  const TIME limit = std::chrono::steady_clock::now() + kFloodLimit;
  while (!batch.empty()) {
    if (std::chrono::steady_clock::now() > limit) {
      throw std::runtime_error("IO does not take what a flood has sent");
    }
    SendSome(batch);
  }
  if (IsStopped()) {
    return;
  }
  if (IsDropped()) {
    LeaveFlood();
    return;
  }
  AwaitLastOutput();
  ++m_floodsOver;
}

std::string MACHINE::NextBatch() {
  std::string batch;
  for (int i = 0; i < kBatch; ++i) {
    batch += FloodLine(++m_lines) + "\r\n";
  }
  return batch + "a5b0d" + Hex(++m_turn % kLastOutputs) + "\r\n";
}

/// Sends what is taken at once, and reads what is there.
void MACHINE::SendSome(std::string& text) {
  const std::size_t taken = m_io->TrySend(text);
  text.erase(0, taken);
  if (!IsStalled()) {
    m_io->Read(kMuch, milliseconds(0));
  }
  if (taken == 0) {
    m_io->WaitUntilWritable(kFloodStep);
  }
}

/// The daemon closes when it has read all that was sent, or has told that it does not.
void MACHINE::LeaveFlood() {
  m_io->CloseSending();
  const TIME limit = std::chrono::steady_clock::now() + kFloodLimit;
  while (!m_io->IsEnded()) {
    if (std::chrono::steady_clock::now() > limit) {
      throw std::runtime_error("IO is not closed although its client has left");
    }
    m_io->Read(kMuch, kFloodStep);
  }
}

/// The daemon sends what it was told last, whatever was dropped before it. Only where the link is
/// lost a frame may be lost with it.
void MACHINE::AwaitLastOutput() {
  const int lost = Weather().LostLinks();
  const std::string value = Hex(kLastOutputs + ++m_lastOutput % kLastOutputs);
  std::string output = "a5b0d" + value + "\r\n";
  const TIME limit = std::chrono::steady_clock::now() + kFloodLimit;
  while (!output.empty() || !m_rack.WaitForValue("card 5 block 0", value, kFloodStep)) {
    if (std::chrono::steady_clock::now() > limit) {
      if (Weather().LostLinks() == lost) {
        throw std::runtime_error("the last output of a flood did not reach its card");
      }
      return;
    }
    SendSome(output);
  }
}

}  // namespace soak
