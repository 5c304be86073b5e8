#include "tests/support/ProcessInfo.h"
#include "tests/support/Text.h"
#include "tests/system/LoadFixture.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

/// All three clients and the bus at once, each as fast as it goes, and one after the other of them
/// stalled, away and back. Everything is numbered: at the end each line that went in is looked for
/// where it is to come out.

namespace {

using std::chrono::milliseconds;

enum class MOOD { kWell, kStalled, kAway };

/// A client that sends what it has and reads what comes, in a thread of its own. Stalled it sends,
/// but does not read; before it goes away all that it has sent is read.
class FLOOD_CLIENT {
 public:
  /// More to send. Empty: nothing for now.
  using SOURCE = std::function<std::string()>;

  /// While so many bytes wait unread, nothing is added; 0: each text is a message of its own.
  FLOOD_CLIENT(const support::INTERFACE& interface, std::string greeting, std::size_t mostUnread,
               SOURCE source)
      : m_port(interface.port),
        m_greeting(std::move(greeting)),
        m_mostUnread(mostUnread),
        m_source(std::move(source)),
        m_thread([this] { Run(); }) {}
  ~FLOOD_CLIENT() { Stop(); }
  FLOOD_CLIENT(const FLOOD_CLIENT&) = delete;
  FLOOD_CLIENT& operator=(const FLOOD_CLIENT&) = delete;

  /// Returns when it is so.
  void Be(MOOD mood) {
    m_wanted = mood;
    EXPECT_TRUE(support::WaitUntil([&] { return m_mood == mood; }, 3 * support::kLimit))
        << m_greeting << "gives no way";
  }
  /// What has come on each connection, before the greeting and behind it: whoever connects gets
  /// what waited for the one before him.
  std::vector<std::string> Stop() {
    m_isOver = true;
    if (m_thread.joinable()) {
      m_thread.join();
    }
    return m_pieces;
  }
  /// The last that came ends with this.
  bool HasGot(const std::string& text) const {
    const std::lock_guard lock(m_mutex);
    return !m_pieces.empty() && m_pieces.back().ends_with(text);
  }
  /// Nothing more will be sent, and all is read.
  bool IsDone() const { return m_isDone; }

 private:
  void Run() {
    try {
      while (!m_isOver) {
        Live();
      }
    } catch (const std::exception& error) {
      ADD_FAILURE() << m_greeting << error.what();
    }
  }

  void Live() {
    const MOOD wanted = m_wanted;
    if (wanted == MOOD::kAway) {
      if (m_client && (!m_unsent.empty() || !m_client->IsAllRead())) {
        Send();
        Read();
        return;
      }
      m_client.reset();
      std::this_thread::sleep_for(milliseconds(1));
    } else {
      if (!m_client) {
        Connect();
      }
      const std::size_t unread = m_client->UnreadBytes();
      if (m_unsent.empty() && unread <= m_mostUnread) {
        m_unsent = m_source();
        m_isDone = m_unsent.empty() && unread == 0;
      }
      Send();
      if (wanted == MOOD::kWell) {
        Read();
      }
    }
    m_mood = wanted;
  }

  void Connect() {
    std::string before;
    do {
      m_client.emplace(m_port, support::CLIENT_OPTIONS{.smallBuffers = true});
      before = m_client->ReadUntil(m_greeting);
    } while (!before.ends_with(m_greeting));
    before.resize(before.size() - m_greeting.size());
    const std::lock_guard lock(m_mutex);
    m_pieces.push_back(before);
    m_pieces.emplace_back();
  }

  void Send() { m_unsent.erase(0, m_client->TrySend(m_unsent)); }

  void Read() {
    const std::string piece = m_client->Read(4096, milliseconds(2));
    const std::lock_guard lock(m_mutex);
    m_pieces.back() += piece;
  }

  const int m_port;
  const std::string m_greeting;
  const std::size_t m_mostUnread;
  const SOURCE m_source;  // the thread's
  std::atomic<MOOD> m_wanted{MOOD::kWell};
  std::atomic<MOOD> m_mood{MOOD::kAway};
  std::atomic<bool> m_isOver{false};
  std::atomic<bool> m_isDone{false};
  std::string m_unsent;                // the thread's
  std::optional<TCP_CLIENT> m_client;  // the thread's
  mutable std::mutex m_mutex;
  std::vector<std::string> m_pieces;  // guarded by m_mutex
  std::thread m_thread;
};

/// Finds lines again in the row of all that there were.
class FOLLOWER {
 public:
  explicit FOLLOWER(std::vector<std::string> all) : m_all(std::move(all)) {}

  /// What came on one connection. Between two of them some may have got lost on their way.
  void Take(const std::vector<std::string>& lines) {
    for (std::size_t i = 0; i < lines.size(); ++i, ++m_next) {
      if (m_next < m_all.size() && lines[i] == m_all[m_next]) {
        continue;
      }
      const auto found = Find(lines.begin() + static_cast<std::ptrdiff_t>(i), lines.end());
      if (found == m_all.end()) {
        ADD_FAILURE() << "torn, or out of order: " << support::Visible(lines[i])
                      << ", behind number " << m_next << " of " << m_all.size();
        return;
      }
      m_gaps += i > 0 ? 1 : 0;
      m_next = static_cast<std::size_t>(found - m_all.begin());
    }
  }

  /// Places, on one connection, where some are missing.
  int Gaps() const { return m_gaps; }
  /// The last of them has come.
  bool IsAtEnd() const { return m_next == m_all.size(); }

 private:
  using PLACE = std::vector<std::string>::const_iterator;

  /// Where the next lines stand again. One of four has a number that is no other's; where even
  /// among these some are missing, fewer must do.
  PLACE Find(PLACE begin, PLACE end) const {
    for (std::ptrdiff_t count = std::min<std::ptrdiff_t>(4, end - begin); count > 0; --count) {
      const PLACE found = std::search(m_all.begin() + static_cast<std::ptrdiff_t>(m_next),
                                      m_all.end(), begin, begin + count);
      if (found != m_all.end()) {
        return found;
      }
    }
    return m_all.end();
  }

  const std::vector<std::string> m_all;
  std::size_t m_next = 0;  // at most the number of all
  int m_gaps = 0;
};

class Flood : public LOAD_FIXTURE {
 protected:
  static constexpr const char* kCopiesAreNotMade =
      "[ERR] too many messages wait on MON interface, copies are not made";
  static constexpr const char* kReportsAreNotMade =
      "[ERR] too many messages wait on CAE interface, refused commands are not reported";
  static constexpr const char* kAnswersAreNotKept =
      "[ERR] too many messages wait on CAE interface, answers are not kept";
  /// Bytes that the machine sends ahead: more than the daemon takes from it.
  static constexpr std::size_t kMachineAhead = 48'000;
  static constexpr std::size_t kCards = 3;
  static constexpr std::array<COUNTED_CARD, kCards> kCountedCards{kOutputCard, kServoCard,
                                                                  kMotorCard};

  /// Commands for each of the cards and one that is refused, as the machine sends them next.
  std::string NextRow() {
    const int number = m_rows++;
    std::string row;
    for (const COUNTED_CARD& card : kCountedCards) {
      row += card.Command(number) + "\n";
    }
    return row + RefusedCommand(number) + "\n";
  }
  /// The last commands of all.
  std::vector<std::string> EndLines() const {
    std::vector<std::string> lines;
    for (const COUNTED_CARD& card : kCountedCards) {
      lines.push_back(card.EndCommand(m_rows));
    }
    return lines;
  }
  /// Twenty rows, as long as the flood lasts; then those that are still wanted, and the end.
  std::string NextLines() {
    std::string lines;
    for (int i = 0; m_isFlooding && i < 20; ++i) {
      lines += NextRow();
    }
    if (lines.empty() && m_wantedRows > m_rows) {
      lines = NextRow();
    }
    if (lines.empty() && m_isEnding.exchange(false)) {
      for (const std::string& line : EndLines()) {
        lines += line + "\n";
      }
    }
    return lines;
  }
  std::string NextQuestion() {
    return m_isFlooding ? "SPEED=" + Asked(m_questions++) + "\r\n" : "";
  }
  static std::string Asked(int number) {
    char text[20];
    std::snprintf(text, sizeof text, " %06d", number);
    return kSpeedOfLongFaults + text;
  }

  void SetBus(MOOD mood) {
    bus.BeSilent(mood == MOOD::kStalled);
    if (mood == MOOD::kAway) {
      Unplug();
    } else if (!adapter.Plugged()) {
      Plug(0);
    }
  }
  void Weather(const std::map<PART, FLOOD_CLIENT*>& clients);
  void Drain(const FLOOD_CLIENT& machine, const FLOOD_CLIENT& console, const FLOOD_CLIENT& monitor);
  void JudgeOutputs(const COUNTED_CARD& card) const;
  void JudgeMachine(const std::vector<std::string>& pieces) const;
  void JudgeMonitor(const std::vector<std::string>& pieces) const;
  void JudgeOperator(const std::vector<std::string>& pieces) const;

  std::atomic<bool> m_isFlooding{true};
  std::atomic<bool> m_isEnding{false};
  std::atomic<int> m_rows{0};  // sent, or about to be
  std::atomic<int> m_wantedRows{0};
  std::atomic<int> m_questions{0};
};

/// One after the other of all parts stalled, away and back.
void Flood::Weather(const std::map<PART, FLOOD_CLIENT*>& clients) {
  const milliseconds length{Rounds(60'000, 6000) / 12};
  for (const PART part : {PART::kBus, PART::kCae, PART::kMon, PART::kIo}) {
    for (const MOOD mood : {MOOD::kStalled, MOOD::kAway, MOOD::kWell}) {
      part == PART::kBus ? SetBus(mood) : clients.at(part)->Be(mood);
      std::this_thread::sleep_for(length);
      if (!support::kInstrumented) {
        EXPECT_LT(support::ResidentKiB(Pid()), 32 * 1024);
      }
    }
  }
}

/// Nothing waits any more, and the last of everything has come.
void Flood::Drain(const FLOOD_CLIENT& machine, const FLOOD_CLIENT& console,
                  const FLOOD_CLIENT& monitor) {
  bus.StopInputs();
  m_isFlooding = false;
  EXPECT_TRUE(support::WaitUntil([&] { return machine.IsDone() && console.IsDone(); }, kLoadLimit));
  EXPECT_TRUE(support::WaitUntil([&] { return machine.HasGot(IoLine(InputLine(bus.Inputs()))); },
                                 kLoadLimit));
  // As long as too much waits for it, what is to be the last is not told.
  const auto isLastTold = [&] {
    const std::string last = RefusedCommand(m_rows - 1);
    return console.HasGot(CaeReply({"COE:Illegal command -> " + last})) &&
           monitor.HasGot(last + "\n\r");
  };
  EXPECT_TRUE(support::WaitUntil(
      [&] {
        m_wantedRows = m_rows + 1;
        support::WaitUntil([&] { return m_rows == m_wantedRows; }, kLoadLimit);
        return support::WaitUntil(isLastTold, milliseconds(1000));
      },
      kLoadLimit));
  m_isEnding = true;
  for (const COUNTED_CARD& card : kCountedCards) {
    EXPECT_TRUE(support::WaitUntil(
        [&] { return bus.LastOutput(card.Address()) == card.EndFrame(m_rows); }, kLoadLimit));
  }
  EXPECT_TRUE(support::WaitUntil([&] { return monitor.HasGot(EndLines().back() + "\n\r"); }));
}

/// Frames are in order. Where the link was lost one of them may be gone with it, and the oldest of
/// those that waited, which the log tells once for each absence.
void Flood::JudgeOutputs(const COUNTED_CARD& card) const {
  SCOPED_TRACE("card " + std::to_string(card.Address()));
  std::vector<sim::Bytes> outputs = bus.Outputs(card.Address());
  outputs.pop_back();  // the end
  if (card.Address() == kOutputCard.Address()) {
    outputs.erase(outputs.begin());  // that of the look before the flood
  }
  int last = -1;
  int gaps = 0;
  int wideGaps = 0;
  for (const sim::Bytes& output : outputs) {
    const auto number = card.NumberOf(output);
    ASSERT_TRUE(number) << sim::ToHex(output) << " behind number " << last;
    const int missing = (*number - last - 1 + card.Period()) % card.Period();
    gaps += missing > 0 ? 1 : 0;
    wideGaps += missing > 1 ? 1 : 0;
    last = *number;
  }
  EXPECT_EQ(last, (m_rows - 1) % card.Period());
  EXPECT_LE(gaps, CountLines(kLinkIsLost));
  EXPECT_LE(wideGaps, CountLines(kOldestAreLost));
}

void Flood::JudgeMachine(const std::vector<std::string>& pieces) const {
  int gaps = 0;
  for (const std::string& piece : pieces) {
    const INPUT_GAPS found = FindInputGaps(Messages(piece, "\n\r"));
    EXPECT_FALSE(found.torn) << support::Visible(*found.torn);
    gaps += found.gaps;
  }
  EXPECT_LE(gaps, CountLines(kLinkIsLost));
}

void Flood::JudgeMonitor(const std::vector<std::string>& pieces) const {
  std::vector<std::string> sent;
  for (int number = 0; number < m_rows; ++number) {
    for (const COUNTED_CARD& card : kCountedCards) {
      sent.push_back(card.Command(number));
    }
    sent.push_back(RefusedCommand(number));
  }
  for (const std::string& line : EndLines()) {
    sent.push_back(line);
  }
  FOLLOWER copies(std::move(sent));
  int inputGaps = 0;
  for (const std::string& piece : pieces) {
    std::vector<std::string> inputs;
    std::vector<std::string> lines;
    for (const std::string& message : Messages(piece, "\n\r")) {
      if (message.starts_with("a3")) {
        inputs.push_back(message);
      } else {
        const std::vector<std::string> more = support::Lines(message);
        lines.insert(lines.end(), more.begin(), more.end());
      }
    }
    copies.Take(lines);
    const INPUT_GAPS found = FindInputGaps(inputs);
    EXPECT_FALSE(found.torn) << support::Visible(*found.torn);
    inputGaps += found.gaps;
  }
  EXPECT_TRUE(copies.IsAtEnd());
  // One line tells of all that is missing until half of what waits has been read.
  if (CountLines(kCopiesAreNotMade) == 0) {
    EXPECT_EQ(copies.Gaps(), 0);
    EXPECT_LE(inputGaps, CountLines(kLinkIsLost));
  }
}

void Flood::JudgeOperator(const std::vector<std::string>& pieces) const {
  std::vector<std::string> refused;
  for (int number = 0; number < m_rows; ++number) {
    refused.push_back("COE:Illegal command -> " + RefusedCommand(number));
  }
  std::vector<std::string> asked;
  for (int number = 0; number < m_questions; ++number) {
    asked.push_back("CIA: SPEED IS SET to " + Asked(number) + "%");
  }
  FOLLOWER reports(std::move(refused));
  FOLLOWER answers(std::move(asked));
  for (const std::string& piece : pieces) {
    std::vector<std::string> toldReports;
    std::vector<std::string> toldAnswers;
    for (const std::string& message : Messages(piece, "\r\n\r")) {
      if (message != ">") {
        (message.starts_with("CIA: ") ? toldAnswers : toldReports).push_back(message);
      }
    }
    reports.Take(toldReports);
    answers.Take(toldAnswers);
  }
  EXPECT_TRUE(reports.IsAtEnd());
  EXPECT_TRUE(reports.Gaps() == 0 || CountLines(kReportsAreNotMade) > 0) << reports.Gaps();
  EXPECT_TRUE(answers.Gaps() == 0 || CountLines(kAnswersAreNotKept) > 0) << answers.Gaps();
}

TEST_F(Flood, NothingIsTornOrOutOfOrderAndEachLossIsInTheLog) {
  config.initPollState = "TRUE";
  config.speedPercent = kSpeedOfLongFaults;
  StartForFaults();
  BeginFault({.touched = {PART::kBus, PART::kCae, PART::kIo, PART::kMon},
              .lines = {kNoDevice, kOldestAreLost, kCopiesAreNotMade, kReportsAreNotMade,
                        kAnswersAreNotKept},
              .mostLines = 5000,
              .looksForItself = true});
  cae.reset();
  io.reset();
  mon.reset();
  bus.StartInputs();
  {
    FLOOD_CLIENT machine(config.io, kIoGreeting, kMachineAhead, [this] { return NextLines(); });
    FLOOD_CLIENT console(config.cae, kCaeGreeting, 0, [this] { return NextQuestion(); });
    FLOOD_CLIENT monitor(config.mon, kMonGreeting, 0, [] { return std::string(); });
    for (FLOOD_CLIENT* const client : {&machine, &console, &monitor}) {
      client->Be(MOOD::kWell);
    }
    Weather({{PART::kIo, &machine}, {PART::kCae, &console}, {PART::kMon, &monitor}});
    Drain(machine, console, monitor);
    JudgeMachine(machine.Stop());
    JudgeOperator(console.Stop());
    JudgeMonitor(monitor.Stop());
  }
  for (const COUNTED_CARD& card : kCountedCards) {
    JudgeOutputs(card);
  }
  EndFault();
}

}  // namespace
