#include "bench/compare/Measures.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <limits>
#include <random>
#include <vector>

namespace bench {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::uint8_t kCard = 9;
constexpr seconds kLostAfter{2};
constexpr seconds kFloodStalled{4};
constexpr milliseconds kBeforeIdling{1300};

double Microseconds(NANOSECONDS time) {
  return std::chrono::duration<double, std::micro>(time).count();
}

TIMES Summary(std::vector<double> times, int lost) {
  if (times.empty()) {
    const double none = std::numeric_limits<double>::quiet_NaN();
    return {none, none, lost};
  }
  std::sort(times.begin(), times.end());
  const auto at = [&times](double share) {
    const double rank = std::ceil(share * static_cast<double>(times.size()));
    return times.at(static_cast<std::size_t>(rank) - 1);
  };
  return {at(0.5), at(0.99), lost};
}

/// The same gaps for all. A fixed one would meet a loop that pauses at the same moment of its pause
/// every time.
class GAPS {
 public:
  explicit GAPS(NANOSECONDS shortest) : m_further(0, shortest.count()), m_shortest(shortest) {}
  NANOSECONDS Next() { return m_shortest + NANOSECONDS(m_further(m_random)); }

 private:
  std::minstd_rand m_random;  // NOLINT(cert-msc32-c,cert-msc51-cpp): see above
  std::uniform_int_distribution<std::int64_t> m_further;
  const NANOSECONDS m_shortest;
};

/// Hands outputs over for as long as it lives.
class LISTENING {
 public:
  LISTENING(SUBJECT& subject, std::function<void(const BUS_END::OUTPUT&)> handler)
      : m_bus(subject.Bus()) {
    m_bus.SetOutputHandler(std::move(handler));
  }
  ~LISTENING() { m_bus.SetOutputHandler(nullptr); }
  LISTENING(const LISTENING&) = delete;
  LISTENING& operator=(const LISTENING&) = delete;

 private:
  BUS_END& m_bus;
};

}  // namespace

COMMAND_TIMES MeasureCommands(SUBJECT& subject, NANOSECONDS gap, int count) {
  std::uint32_t latest = 0;
  TIME latestAt{};
  const LISTENING listening(subject, [&](const BUS_END::OUTPUT& output) {
    latest = NumberOf(output);
    latestAt = output.at;
  });
  GAPS gaps(gap);
  std::vector<double> times;
  int lost = 0;
  subject.Loop().RunFor(gaps.Next());
  const std::uint64_t sleeps = subject.Process().Sleeps();
  for (int turn = 0; turn < count; ++turn) {
    const auto number = static_cast<std::uint32_t>(turn) + 1;
    const std::string command = subject.Command(kCard, number);
    const TIME sentAt = CLOCK::now();
    subject.Client().Send(command);
    if (subject.Loop().Run(sentAt + kLostAfter, [&] { return latest == number; })) {
      times.push_back(Microseconds(latestAt - sentAt));
    } else {
      ++lost;
    }
    subject.Loop().RunFor(gaps.Next());
  }
  const auto slept = static_cast<double>(subject.Process().Sleeps() - sleeps);
  return {Summary(std::move(times), lost), slept / count};
}

LINE_TIMES MeasureLines(SUBJECT& subject, NANOSECONDS gap, int count) {
  GAPS gaps(gap);
  std::vector<double> toClient;
  std::vector<double> fromChange;
  int lost = 0;
  subject.Loop().RunFor(gaps.Next());
  subject.Client().DropAll();
  for (int turn = 0; turn < count; ++turn) {
    const auto value = static_cast<std::uint8_t>(turn % 255 + 1);
    std::array<char, 16> line{};
    std::snprintf(line.data(), line.size(), "a0b0d%02X", static_cast<unsigned>(value));
    const TIME changedAt = CLOCK::now();
    subject.Change(value);
    const bool hasCome = subject.Loop().Run(changedAt + kLostAfter, [&] {
      while (const std::optional<std::string> received = subject.Client().TakeLine()) {
        if (*received == line.data()) {
          return true;
        }
      }
      return false;
    });
    if (hasCome && subject.ChangeSentAt() != TIME()) {
      toClient.push_back(Microseconds(subject.Client().ReceivedAt() - subject.ChangeSentAt()));
      fromChange.push_back(Microseconds(subject.Client().ReceivedAt() - changedAt));
    } else {
      ++lost;
    }
    subject.Loop().RunFor(gaps.Next());
  }
  return {Summary(std::move(toClient), lost), Summary(std::move(fromChange), lost)};
}

double MeasureRate(SUBJECT& subject, NANOSECONDS time) {
  std::uint32_t sent = 1;
  std::uint32_t arrived = 0;
  TIME arrivedAt{};
  const LISTENING listening(subject, [&](const BUS_END::OUTPUT& output) {
    arrived = NumberOf(output);
    arrivedAt = output.at;
  });
  const TIME begin = CLOCK::now();
  subject.Client().Send(subject.Command(kCard, sent));
  subject.Loop().Run(begin + time, [&] {
    if (arrived == sent) {
      subject.Client().Send(subject.Command(kCard, ++sent));
    }
    return false;
  });
  // Up to the last that came: one that was lost, with its link, would be waited for.
  const std::chrono::duration<double> took = arrivedAt - begin;
  const double rate = arrived > 0 ? arrived / took.count() : 0;
  // The last one is not to be taken for one of the next measurement.
  subject.Loop().Run(CLOCK::now() + kLostAfter, [&] { return arrived == sent; });
  return rate;
}

POLLING MeasurePolling(SUBJECT& subject, NANOSECONDS time) {
  static constexpr std::string_view kPollOfCard0("\x03\x20\x00\x02", 4);
  constexpr std::size_t kAnswerSize = 5;
  const TIME begin = CLOCK::now();
  const NANOSECONDS lineBefore = subject.Bus().LineTime(kBaud);
  const NANOSECONDS processorBefore = subject.Process().ProcessorTime();
  if (subject.Polls()) {
    subject.Loop().RunFor(time);
  } else {
    CLIENT& client = subject.Client();
    client.DropAll();
    client.Send(kPollOfCard0);
    subject.Loop().Run(begin + time, [&client] {
      if (client.Received().size() >= kAnswerSize) {
        client.Drop(kAnswerSize);
        client.Send(kPollOfCard0);
      }
      return false;
    });
  }
  const std::chrono::duration<double> took = CLOCK::now() - begin;
  const std::chrono::duration<double> line = subject.Bus().LineTime(kBaud) - lineBefore;
  const std::chrono::duration<double> processor =
      subject.Process().ProcessorTime() - processorBefore;
  if (!subject.Polls()) {
    // The last answer is not to stand before the first line of the next measurement.
    subject.Loop().Run(CLOCK::now() + kLostAfter,
                       [&] { return subject.Client().Received().size() >= kAnswerSize; });
    subject.Client().DropAll();
  }
  return {line / took, processor / took * 100};
}

IDLING MeasureIdling(SUBJECT& subject, NANOSECONDS time) {
  subject.Loop().RunFor(kBeforeIdling);
  const TIME begin = CLOCK::now();
  const NANOSECONDS processorBefore = subject.Process().ProcessorTime();
  const std::uint64_t sleepsBefore = subject.Process().Sleeps();
  subject.Loop().RunFor(time);
  const std::chrono::duration<double> took = CLOCK::now() - begin;
  const std::chrono::duration<double, std::milli> processor =
      subject.Process().ProcessorTime() - processorBefore;
  const auto sleeps = static_cast<double>(subject.Process().Sleeps() - sleepsBefore);
  return {processor.count() / took.count() * 10, sleeps / took.count()};
}

FLOOD MeasureFlood(SUBJECT& subject, std::size_t count) {
  FLOOD flood;
  std::array<std::uint32_t, BUS_END::kSlots> latest{};
  TIME latestAt{};
  const LISTENING listening(subject, [&](const BUS_END::OUTPUT& output) {
    const std::uint32_t number = NumberOf(output);
    std::uint32_t& before = latest.at(output.card % BUS_END::kSlots);
    if (number <= before) {
      ++flood.outOfOrder;
    }
    before = std::max(before, number);
    ++flood.arrived;
    latestAt = output.at;
  });
  std::string commands;
  for (std::size_t turn = 0; turn < count; ++turn) {
    commands += subject.Command(static_cast<std::uint8_t>(turn % BUS_END::kSlots),
                                static_cast<std::uint32_t>(turn) + 1);
  }
  const TIME begin = latestAt = CLOCK::now();
  subject.Client().Send(commands);
  std::size_t seen = 0;
  do {
    seen = flood.arrived;
    subject.Loop().Run(CLOCK::now() + kFloodStalled, [&] {
      return flood.arrived >= count || flood.arrived >= seen + count / 20;
    });
  } while (flood.arrived < count && flood.arrived > seen);
  flood.seconds = std::chrono::duration<double>(latestAt - begin).count();
  return flood;
}

}  // namespace bench
