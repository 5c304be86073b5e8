// Compares the daemon with the floor and the stub, for script/bench, which explains what is
// measured.
//
// usage: bench_compare DAEMON FOLDER ROUNDS thorough|quick
//
// Leaves rounds.tsv and medians.tsv in the folder. The status is 0, or 1 when a limit was missed,
// or 2.

#include "bench/compare/Figures.h"
#include "bench/compare/Measures.h"
#include "bench/compare/Process.h"
#include "bench/compare/Subjects.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

using bench::FIGURES;
using bench::NANOSECONDS;
using bench::SUBJECT;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

/// From which on the figures are not to be trusted.
constexpr double kBusyLoad = 1.0;
constexpr double kBusyPercent = 10;

constexpr std::size_t kFlood = 20000;

/// How much is measured.
struct EFFORT {
  std::vector<int> speeds;  // 100 and 1, and those in between for the plot
  std::vector<int> cards;
  int samples;           // at 100 %
  int slowSamples;       // at 1 %
  int samplesInBetween;  // where only the median is drawn
  milliseconds rateTime;
  milliseconds pollingTime;
  milliseconds idleTime;
};
const EFFORT kThorough = {
    {100, 75, 50, 25, 10, 1}, {1, 2, 4, 8, 16}, 1000, 200, 60, seconds(1), seconds(1), seconds(4)};
const EFFORT kQuick = {{100, 1},          {1, 4, 16},        400, 60, 0, milliseconds(400),
                       milliseconds(400), milliseconds(1000)};

/// Further apart than all the pauses of the daemon's loops that a command could wait for.
NANOSECONDS GapAt(int speed) {
  return microseconds(500 + 11500 * (100 - speed) / 99);
}

/// One subject's turn in a round.
class TURN {
 public:
  TURN(SUBJECT& subject, const EFFORT& effort, FIGURES& figures, std::string placement, int round)
      : m_subject(subject),
        m_effort(effort),
        m_figures(figures),
        m_placement(std::move(placement)),
        m_round(round),
        m_isDaemon(std::string_view(subject.Name()) == "vorn"),
        m_isFloor(std::string_view(subject.Name()) == "floor") {}

  void Run() {
    m_subject.PrepareCommands();
    for (const int speed : Speeds()) {
      m_subject.SetSpeed(speed);
      Commands(speed);
    }
    for (const int speed : OwnSpeeds()) {
      m_subject.SetSpeed(speed);
      RateAndFlood(speed);
    }
    for (const int cards : m_effort.cards) {
      Polling(cards);
    }
    m_subject.PrepareIdling();
    for (const int speed : OwnSpeeds()) {
      m_subject.SetSpeed(speed);
      const bench::IDLING idling = bench::MeasureIdling(m_subject, m_effort.idleTime);
      Add("idle_ms", speed, 0, idling.processorMs);
      Add("idle_sleeps", speed, 0, idling.sleepsASecond);
    }
    if (m_isDaemon) {
      Add("links_lost", 0, 0, m_subject.Bus().Handshakes() - 1);
    }
  }

 private:
  /// Those of which there are figures for each: the gaps make a difference for all subjects.
  std::vector<int> Speeds() const {
    return m_isDaemon || m_isFloor ? m_effort.speeds : std::vector<int>{100, 1};
  }
  /// Those at which the subject itself is another.
  std::vector<int> OwnSpeeds() const {
    return m_isDaemon ? std::vector<int>{100, 1} : std::vector<int>{0};
  }

  int Samples(int speed) const {
    switch (speed) {
      case 100:
        return m_effort.samples;
      case 1:
        return m_effort.slowSamples;
      default:
        return m_effort.samplesInBetween;
    }
  }

  void Add(const char* metric, int speed, int cards, double value) {
    m_figures.Add({m_placement, metric, speed, cards}, m_subject.Name(), m_round, value);
  }

  void Commands(int speed) {
    const bench::COMMAND_TIMES times =
        bench::MeasureCommands(m_subject, GapAt(speed), Samples(speed));
    Add("command_p50_us", speed, 0, times.toBus.median);
    Add("command_p99_us", speed, 0, times.toBus.p99);
    Add("command_sleeps", speed, 0, times.sleepsEach);
    m_lost[speed] = times.toBus.lost;
  }

  void Lines(int speed) {
    const bench::LINE_TIMES times = bench::MeasureLines(m_subject, GapAt(speed), Samples(speed));
    Add("line_p50_us", speed, 0, times.toClient.median);
    Add("line_p99_us", speed, 0, times.toClient.p99);
    if (!m_isFloor) {
      Add("change_p50_us", speed, 0, times.fromChange.median);
    }
    Add("lost", speed, 0, m_lost[speed] + times.toClient.lost);
  }

  void RateAndFlood(int speed) {
    Add("commands_per_s", speed, 0, bench::MeasureRate(m_subject, m_effort.rateTime));
    const bench::FLOOD flood = bench::MeasureFlood(m_subject, kFlood);
    Add("flood_arrived", speed, 0, static_cast<double>(flood.arrived));
    Add("flood_disorder", speed, 0, static_cast<double>(flood.outOfOrder));
    Add("flood_s", speed, 0, flood.seconds);
  }

  void Polling(int cards) {
    if (m_isFloor && cards > 1) {
      return;  // a relay does not know how many there are
    }
    m_subject.PreparePolling(static_cast<std::size_t>(cards));
    for (const int speed : OwnSpeeds()) {
      m_subject.SetSpeed(speed);
      const bench::POLLING polling = bench::MeasurePolling(m_subject, m_effort.pollingTime);
      Add("line_share", speed, cards, polling.share);
      Add("polling_processor", speed, cards, polling.processor);
    }
    if (cards > 1) {
      return;
    }
    if (m_isFloor) {
      m_subject.PrepareCommands();
    }
    for (const int speed : Speeds()) {
      m_subject.SetSpeed(speed);
      Lines(speed);
    }
  }

  SUBJECT& m_subject;
  const EFFORT& m_effort;
  FIGURES& m_figures;
  const std::string m_placement;
  const int m_round;
  const bool m_isDaemon;
  const bool m_isFloor;
  std::map<int, int> m_lost;
};

/// All rounds; what others took of the machine meanwhile, in percent of one processor.
double RunRounds(const bench::PLACES& places, const EFFORT& effort, int rounds, bool movesKernel,
                 FIGURES& figures) {
  const cpu_set_t all = bench::AllowedProcessors();
  std::optional<bench::KERNEL_WORKERS> kernel;
  if (movesKernel) {
    kernel.emplace();
  }
  double mostOthers = 0;
  for (int round = 1; round <= rounds; ++round) {
    for (const char* placement : {"one core", "free"}) {
      std::fprintf(stderr, "round %d of %d, %s\n", round, rounds, placement);
      const cpu_set_t here = std::string_view(placement) == "one core" ? bench::OneOf(all) : all;
      bench::RunOn(here);
      if (kernel) {
        kernel->RunOn(here);
      }
      for (const auto make : {bench::MakeFloor, bench::MakeStub}) {
        const std::unique_ptr<SUBJECT> subject = make(places);
        TURN(*subject, effort, figures, placement, round).Run();
      }
      double others = 0;
      const std::unique_ptr<SUBJECT> daemon = bench::MakeDaemon(places, others);
      mostOthers = std::max(mostOthers, others);
      TURN(*daemon, effort, figures, placement, round).Run();
    }
  }
  bench::RunOn(all);
  return mostOthers;
}

int Compare(const bench::PLACES& places, const EFFORT& effort, int rounds, bool movesKernel) {
  bench::CatchSignals();
  bench::BecomeReaper();
  const double load = bench::Load();
  const bench::OTHERS others;
  bench::LOOP().RunFor(seconds(1));
  const double othersBefore = others.Percent();

  FIGURES figures;
  const double othersDuring = RunRounds(places, effort, rounds, movesKernel, figures);
  figures.WriteRounds(places.folder + "/rounds.tsv");
  figures.WriteMedians(places.folder + "/medians.tsv");

  std::printf(
      "medians of %d round%s; load %.2f before; others took %.0f %% of a processor before, %.0f %% "
      "between measurements at most\n",
      rounds, rounds == 1 ? "" : "s", load, othersBefore, othersDuring);
  int missed = 0;
  for (const char* placement : {"one core", "free"}) {
    std::printf("\n");
    missed += bench::PrintTable(figures, placement);
  }
  if (load >= kBusyLoad || std::max(othersBefore, othersDuring) >= kBusyPercent) {
    std::printf(
        "\nTHE MACHINE WAS NOT QUIET: other programs ran beside, these figures say little.\n");
  }
  if (missed > 0) {
    std::printf("\n%d limit%s missed (marked with !)\n", missed, missed == 1 ? " was" : "s were");
  }
  return missed > 0 ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv, argv + argc);
  const bool movesKernel = words.size() == 6 && words[5] == "kernel";
  const long rounds =
      words.size() == 5 || movesKernel ? std::strtol(words[3].c_str(), nullptr, 10) : 0;
  if (rounds < 1 || rounds > 99 || (words[4] != "thorough" && words[4] != "quick")) {
    std::fputs("usage: bench_compare DAEMON FOLDER ROUNDS thorough|quick [kernel]\n", stderr);
    return 2;
  }
  const std::string beside = words[0].substr(0, words[0].rfind('/') + 1);
  try {
    return Compare({beside + "bench_relay", beside + "bench_stub", words[1], words[2]},
                   words[4] == "quick" ? kQuick : kThorough, static_cast<int>(rounds), movesKernel);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "bench: %s\n", failure.what());
    return 2;
  }
}
