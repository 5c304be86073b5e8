#include "tests/system/FaultFixture.h"

#include "tests/support/ProcessInfo.h"
#include "tests/support/Text.h"

#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string_view>

namespace {

using std::chrono::milliseconds;

/// A client whose handshake ends in the moment when the daemon closes its listener is not told by
/// the kernel: it sees a connection that the other end does not have.
constexpr milliseconds kGreetingLimit{support::kInstrumented ? 10'000
                                                             : 6000};  // of which 3 s are a pause

const char* const kBusLines[] = {
    "[INF] comm timeout /dev/ttyUSB",
    "[INF] try to catch hardware on /dev/ttyUSB",
    "[INF] hardware found on /dev/ttyUSB",
    "[ERR] unable to  write to /dev/ttyUSB",
    "[ERR] ttyUSB devices couldn't be found",
    // Between the listing and the open it may be gone.
    "[ERR] unable to  open /dev/ttyUSB",
};

/// The daemon counts its reads of the line, not their time: where everything is busy, a reply of
/// the rack can be too late. Three links lost and found again are the machine's doing.
constexpr int kLateReplyLines = 9;

/// Cards of the rack that the listing names by their channels: servo, motor, both digital,
/// analogue.
constexpr int kChannelCards = 5;

int CountOf(const std::string& text, const std::string& part) {
  int count = 0;
  for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) {
    ++count;
  }
  return count;
}

std::string Shown(const std::map<int, std::string>& descriptors) {
  std::string text;
  for (const auto& [number, target] : descriptors) {
    text += "  " + std::to_string(number) + " " + target + "\n";
  }
  return text;
}

}  // namespace

void FAULT_FIXTURE::TearDown() {
  if (m_isUnderWay) {
    EndFault();
  }
  if (daemon.Running()) {
    for (const int seconds : {1, 2, 3}) {
      pauses.Release(seconds);
    }
    daemon.Signal(SIGTERM);
    const std::optional<int> status = daemon.WaitForEnd();
    EXPECT_TRUE(status) << "it does not end";
    EXPECT_TRUE(!status || (WIFEXITED(*status) && WEXITSTATUS(*status) == 0)) << *status;
  }
  SYSTEM_TEST::TearDown();
}

void FAULT_FIXTURE::StartForFaults(const support::START& start) {
  config.autoDiscover = "FALSE";
  StartLinked(start);
  for (const PART part : kInterfaces) {
    Reconnect(part);
  }
  Identify();
}

void FAULT_FIXTURE::Identify() {
  const auto isIdentified = [this] {
    cae->Send("FORCEDISCOVER" + config.cae.inpSeparator);
    const std::string list = cae->ReadUntil(CaeLine(">"));
    // The reply can come in the middle of the listing, which then begins with empty slots.
    if (m_cards.empty() && CountOf(list, " channel ") == kChannelCards) {
      m_cards = list;
    }
    return !m_cards.empty() && list.ends_with(m_cards);
  };
  if (!support::WaitUntil(isIdentified)) {
    throw std::runtime_error("the cards are not found");
  }
}

int FAULT_FIXTURE::Rounds(int all, int ordinary) {
  const char* const full = std::getenv("VORN_TEST_FULL");
  return full != nullptr && std::string_view(full) == "1" ? all : ordinary;
}

// --- around the fault ---------------------------------------------------------------------------

void FAULT_FIXTURE::BeginFault(FAULT_SCOPE scope) {
  ASSERT_FALSE(m_isUnderWay);
  ExpectServiceExcept({});
  m_scope = std::move(scope);
  m_pid = Pid();
  EXPECT_TRUE(support::WaitUntil([&] { return support::ThreadCount(m_pid) == kThreads; }));
  m_descriptors = QuietDescriptors();
  m_linesBefore = log.AllLines().size();
  m_residentKiB = support::ResidentKiB(m_pid);
  m_mostKiB = m_residentKiB;
  m_isUnderWay = true;
  m_isServiceSeen = false;
}

void FAULT_FIXTURE::LookAtMemory() {
  m_mostKiB = std::max(m_mostKiB, support::ResidentKiB(m_pid));
}

void FAULT_FIXTURE::ExpectGrowthBelow(long kiB) {
  LookAtMemory();
  if (!support::kInstrumented) {
    EXPECT_LT(m_mostKiB - m_residentKiB, kiB);
  }
}

void FAULT_FIXTURE::ExpectService() {
  EXPECT_TRUE(ExpectServiceExcept(m_scope.touched)) << "there is nothing left to ask";
  m_isServiceSeen = true;
}

void FAULT_FIXTURE::EndFault() {
  m_isUnderWay = false;
  EXPECT_TRUE(m_isServiceSeen || m_scope.looksForItself)
      << "the test has not looked while the fault lasted";
  EXPECT_EQ(support::ReadFile(support::kPidPath), std::to_string(m_pid));
  ASSERT_TRUE(daemon.Running()) << "the daemon has not survived it";
  for (const PART part : kInterfaces) {
    if (m_scope.touched.contains(part)) {
      Reconnect(part);
    }
  }
  ExpectServiceExcept({});
  EXPECT_TRUE(support::WaitUntil([&] {
    return support::OpenDescriptors(m_pid).size() == m_descriptors.size();
  })) << "before:\n"
      << Shown(m_descriptors) << "now:\n"
      << Shown(support::OpenDescriptors(m_pid));
  EXPECT_EQ(support::ThreadCount(m_pid), kThreads);
  std::vector<std::string> lines = log.AllLines();
  if (lines.size() >= m_linesBefore) {  // else a test has taken the log away, and all are new
    lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(m_linesBefore));
  }
  if (!m_scope.touched.contains(PART::kBus)) {
    int late = 0;
    std::erase_if(lines, [&](const std::string& line) {
      const bool isBusLine =
          std::any_of(std::begin(kBusLines), std::end(kBusLines),
                      [&](const char* beginning) { return line.starts_with(beginning); });
      return isBusLine && ++late <= kLateReplyLines;
    });
  }
  for (const std::string& line : lines) {
    EXPECT_TRUE(IsAllowed(line)) << line;
  }
  EXPECT_LE(lines.size(), m_scope.mostLines);
}

// --- service ------------------------------------------------------------------------------------

bool FAULT_FIXTURE::ExpectServiceExcept(const std::set<PART>& touched) {
  const auto isWell = [&](PART part) { return !touched.contains(part); };
  const bool isPolled = config.initPollState == "TRUE";
  if (isWell(PART::kCae)) {
    const std::string reply = CaeReply({"CIA: DRIVER VERSION 1.20"});
    cae->Send("DRVVER" + config.cae.inpSeparator);
    EXPECT_TRUE(cae->ReadUntil(reply).ends_with(reply));
  }
  if (isWell(PART::kIo)) {
    m_value = (m_value + 1) % 256;
    const std::string command = "a5b0d" + sim::ToHex(static_cast<std::uint8_t>(m_value)) + "\n";
    const std::uint64_t from = adapter.Requests().Last();
    io->Send(command);
    if (isWell(PART::kMon)) {
      EXPECT_TRUE(mon->ReadUntil(command + "\r").ends_with(command + "\r"));
    }
    if (isWell(PART::kBus)) {
      EXPECT_TRUE(adapter.WaitForRequest(
          [&](const sim::REQUEST& request) {
            const sim::Bytes& frame = request.frame;
            return frame.size() == 6 && frame[1] == sim::request::kOutput && frame[2] == 5 &&
                   frame[4] == m_value;
          },
          support::kLimit, from))
          << "the output of " << command;
    }
  } else if (isWell(PART::kCae) && isWell(PART::kBus)) {
    const std::string reply = CaeReply({"CIA: MASK is GOT from card", "AMV:0xF:0x3F"});
    cae->Send("GETANMASK:F" + config.cae.inpSeparator);
    EXPECT_TRUE(cae->ReadUntil(reply).ends_with(reply));
  } else if (isWell(PART::kBus) && isPolled) {
    EXPECT_TRUE(adapter.WaitForRequest(
        [](const sim::REQUEST& request) { return request.frame.at(1) == sim::request::kPoll; },
        support::kLimit, adapter.Requests().Last()));
  }
  return isWell(PART::kCae) || isWell(PART::kIo) || (isWell(PART::kBus) && isPolled);
}

std::string FAULT_FIXTURE::Reconnect(PART part) {
  std::string before;
  Client(part).reset();
  Client(part).emplace(ConnectAsNext(part, {}, before));
  return before;
}

TCP_CLIENT FAULT_FIXTURE::ReplaceBySlowReader(PART part) {
  std::string before;
  Client(part).reset();
  return ConnectAsNext(part, {.smallBuffers = true}, before);
}

TCP_CLIENT FAULT_FIXTURE::ConnectAsNext(PART part, const support::CLIENT_OPTIONS& options,
                                        std::string& before) {
  static const std::map<PART, std::string> kGreetings = {
      {PART::kCae, kCaeGreeting}, {PART::kIo, kIoGreeting}, {PART::kMon, kMonGreeting}};
  const std::string& greeting = kGreetings.at(part);
  std::optional<TCP_CLIENT> client;
  const auto isGreeted = [&] {
    client.reset();
    client.emplace(Interface(part).port, options);
    before = client->ReadUntil(greeting, kGreetingLimit);
    return before.ends_with(greeting);
  };
  if (!support::WaitUntil(isGreeted)) {
    throw std::runtime_error("no greeting on " + Interface(part).name);
  }
  before.resize(before.size() - greeting.size());
  return std::move(*client);
}

std::optional<TCP_CLIENT>& FAULT_FIXTURE::Client(PART part) {
  return part == PART::kCae ? cae : part == PART::kIo ? io : mon;
}

const support::INTERFACE& FAULT_FIXTURE::Interface(PART part) const {
  return part == PART::kCae ? config.cae : part == PART::kIo ? config.io : config.mon;
}

// --- what is seen from outside ------------------------------------------------------------------

std::map<int, std::string> FAULT_FIXTURE::QuietDescriptors() const {
  std::map<int, std::string> descriptors;
  const std::string logPath = std::filesystem::weakly_canonical(log.Path());
  const auto isQuiet = [&] {
    descriptors = support::OpenDescriptors(Pid());
    bool isLinked = false;
    bool isBusy = false;
    for (const auto& [number, target] : descriptors) {
      isLinked = isLinked || target == adapter.NearPath();
      isBusy = isBusy || target.starts_with("pipe:") || target == logPath;
    }
    return isLinked && !isBusy;
  };
  EXPECT_TRUE(support::WaitUntil(isQuiet));
  return descriptors;
}

bool FAULT_FIXTURE::IsAllowed(const std::string& line) const {
  std::vector<std::string> allowed = m_scope.lines;
  if (m_scope.touched.contains(PART::kBus)) {
    allowed.insert(allowed.end(), std::begin(kBusLines), std::end(kBusLines));
  }
  for (const PART part : kInterfaces) {
    if (m_scope.touched.contains(part)) {
      const std::string& name = Interface(part).name;
      allowed.insert(allowed.end(),
                     {Listening(Interface(part)), Waiting(name),
                      "[INF] client is connected on " + name + " interface from ",
                      ClosedByClient(name), "[ERR] socket write error on " + name + " interface"});
    }
  }
  return std::any_of(allowed.begin(), allowed.end(),
                     [&](const std::string& beginning) { return line.starts_with(beginning); });
}

int FAULT_FIXTURE::CountLines(const std::string& beginning) const {
  const std::vector<std::string> lines = log.AllLines();
  return static_cast<int>(std::count_if(lines.begin(), lines.end(), [&](const std::string& line) {
    return line.starts_with(beginning);
  }));
}

bool FAULT_FIXTURE::WaitForLines(const std::string& beginning, int count) const {
  return support::WaitUntil([&] { return CountLines(beginning) >= count; });
}
