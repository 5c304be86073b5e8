#include "bench/compare/Figures.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <limits>

namespace bench {

namespace {

constexpr double kNotMeasured = std::numeric_limits<double>::quiet_NaN();

double MedianOf(std::vector<double> values) {
  if (values.empty()) {
    return kNotMeasured;
  }
  std::sort(values.begin(), values.end());
  const std::size_t middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

// --- the table ----------------------------------------------------------------------------------

enum class LIMIT {
  kNone,
  kAtMost,
  kAtLeast,
  kTimesFloorAtMost,
  kTimesStubAtMost,
  kTimesStubAtLeast
};

/// What the table shows of the daemon, and what it is held to.
struct ROW {
  const char* text;
  const char* metric;
  int speed;  // percent; 0: of the whole round
  int cards;
  int digits;
  LIMIT limit;
  double bound;
};

constexpr ROW kRows[] = {
    {"command, TCP to bus, p50 us", "command_p50_us", 100, 0, 0, LIMIT::kTimesFloorAtMost, 2.2},
    {"command, TCP to bus, p50 us", "command_p50_us", 1, 0, 0, LIMIT::kTimesFloorAtMost, 2.2},
    {"command, TCP to bus, p99 us", "command_p99_us", 100, 0, 0, LIMIT::kAtMost, 150},
    {"command, TCP to bus, p99 us", "command_p99_us", 1, 0, 0, LIMIT::kTimesFloorAtMost, 3},
    {"  times a thread went to sleep for it", "command_sleeps", 100, 0, 1, LIMIT::kNone, 0},
    {"  times a thread went to sleep for it", "command_sleeps", 1, 0, 1, LIMIT::kNone, 0},
    {"input line, bus to TCP, p50 us", "line_p50_us", 100, 0, 0, LIMIT::kTimesFloorAtMost, 1.5},
    {"input line, bus to TCP, p50 us", "line_p50_us", 1, 0, 0, LIMIT::kTimesFloorAtMost, 1.5},
    {"input line, bus to TCP, p99 us", "line_p99_us", 100, 0, 0, LIMIT::kAtMost, 150},
    {"input line, bus to TCP, p99 us", "line_p99_us", 1, 0, 0, LIMIT::kTimesFloorAtMost, 3},
    {"input change to TCP, polled, p50 us", "change_p50_us", 100, 0, 0, LIMIT::kTimesStubAtMost,
     1.1},
    {"input change to TCP, polled, p50 us", "change_p50_us", 1, 0, 0, LIMIT::kNone, 0},
    {"commands a second, one outstanding", "commands_per_s", 100, 0, 0, LIMIT::kTimesStubAtLeast,
     0.5},
    {"commands a second, one outstanding", "commands_per_s", 1, 0, 0, LIMIT::kNone, 0},
    {"share of the line, polling 1 card", "line_share", 100, 1, 2, LIMIT::kAtLeast, 0.77},
    {"share of the line, polling 4 cards", "line_share", 100, 4, 2, LIMIT::kAtLeast, 0.81},
    {"share of the line, polling 16 cards", "line_share", 100, 16, 2, LIMIT::kAtLeast, 0.82},
    {"share of the line, polling 1 card", "line_share", 1, 1, 2, LIMIT::kNone, 0},
    {"share of the line, polling 4 cards", "line_share", 1, 4, 2, LIMIT::kNone, 0},
    {"share of the line, polling 16 cards", "line_share", 1, 16, 2, LIMIT::kNone, 0},
    {"idle, ms of processor time in 10 s", "idle_ms", 100, 0, 1, LIMIT::kAtMost, 5},
    {"idle, ms of processor time in 10 s", "idle_ms", 1, 0, 1, LIMIT::kAtMost, 5},
    {"idle, wake-ups a second", "idle_sleeps", 100, 0, 1, LIMIT::kAtMost, 1},
    {"idle, wake-ups a second", "idle_sleeps", 1, 0, 1, LIMIT::kAtMost, 1},
    {"20,000 commands at once: arrived", "flood_arrived", 100, 0, 0, LIMIT::kAtLeast, 20000},
    {"20,000 commands at once: arrived", "flood_arrived", 1, 0, 0, LIMIT::kAtLeast, 20000},
    {"  out of order", "flood_disorder", 100, 0, 0, LIMIT::kAtMost, 0},
    {"  out of order", "flood_disorder", 1, 0, 0, LIMIT::kAtMost, 0},
    {"commands and lines apart: lost", "lost", 100, 0, 0, LIMIT::kAtMost, 0},
    {"commands and lines apart: lost", "lost", 1, 0, 0, LIMIT::kAtMost, 0},
    {"links lost, at all speeds", "links_lost", 0, 0, 0, LIMIT::kAtMost, 0},
};

bool IsKept(LIMIT limit, double bound, double value, double timesFloor, double timesStub) {
  switch (limit) {
    case LIMIT::kAtMost:
      return value <= bound;
    case LIMIT::kAtLeast:
      return value >= bound;
    case LIMIT::kTimesFloorAtMost:
      return timesFloor <= bound;
    case LIMIT::kTimesStubAtMost:
      return timesStub <= bound;
    case LIMIT::kTimesStubAtLeast:
      return timesStub >= bound;
    case LIMIT::kNone:
      break;
  }
  return true;
}

std::string Words(LIMIT limit, double bound) {
  constexpr std::array<const char*, 6> kForms = {
      "", "<= %g", ">= %g", "<= %g x floor", "<= %g x stub", ">= %g x stub"};
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), kForms.at(static_cast<std::size_t>(limit)), bound);
  return text.data();
}

std::string Number(double value, int digits) {
  if (std::isnan(value)) {
    return "-";
  }
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.*f", digits, value);
  return text.data();
}

/// At most two digits behind the point, none where they would say nothing.
std::string Ratio(double value) {
  return std::isfinite(value) ? Number(value, value < 10 ? 2 : 0) : "-";
}

}  // namespace

// --- figures ------------------------------------------------------------------------------------

void FIGURES::Add(const FIGURE& figure, const std::string& subject, int round, double value) {
  m_values[figure][subject][round] = value;
}

const FIGURES::ROUNDS& FIGURES::Find(const FIGURE& figure, const std::string& subject) const {
  static const ROUNDS kNoRounds;
  for (const int speed : {figure.speed, 0}) {
    const auto bySubject = m_values.find({figure.placement, figure.metric, speed, figure.cards});
    if (bySubject == m_values.end()) {
      continue;
    }
    const auto rounds = bySubject->second.find(subject);
    if (rounds != bySubject->second.end()) {
      return rounds->second;
    }
  }
  return kNoRounds;
}

double FIGURES::Median(const FIGURE& figure, const std::string& subject) const {
  std::vector<double> values;
  for (const auto& [round, value] : Find(figure, subject)) {
    values.push_back(value);
  }
  return MedianOf(std::move(values));
}

double FIGURES::MedianRatio(const FIGURE& figure, const std::string& subject,
                            const std::string& other) const {
  const ROUNDS& others = Find(figure, other);
  std::vector<double> ratios;
  for (const auto& [round, value] : Find(figure, subject)) {
    const auto found = others.find(round);
    if (found != others.end() && found->second > 0) {
      ratios.push_back(value / found->second);
    }
  }
  return MedianOf(std::move(ratios));
}

void FIGURES::WriteRounds(const std::string& path) const {
  std::ofstream file(path);
  file << "round\tplacement\tsubject\tmetric\tspeed\tcards\tvalue\n";
  for (const auto& [figure, subjects] : m_values) {
    for (const auto& [subject, rounds] : subjects) {
      for (const auto& [round, value] : rounds) {
        file << round << '\t' << figure.placement << '\t' << subject << '\t' << figure.metric
             << '\t' << figure.speed << '\t' << figure.cards << '\t' << value << '\n';
      }
    }
  }
}

void FIGURES::WriteMedians(const std::string& path) const {
  std::ofstream file(path);
  file << "placement\tmetric\tspeed\tcards\tfloor\tstub\tvorn\tvorn/floor\tvorn/stub\n";
  for (const auto& [figure, subjects] : m_values) {
    if (subjects.count("vorn") == 0) {
      continue;  // what has no speed stands beside each speed of what has one
    }
    file << figure.placement << '\t' << figure.metric << '\t' << figure.speed << '\t'
         << figure.cards;
    for (const char* subject : {"floor", "stub", "vorn"}) {
      file << '\t' << Median(figure, subject);
    }
    for (const char* other : {"floor", "stub"}) {
      file << '\t' << MedianRatio(figure, "vorn", other);
    }
    file << '\n';
  }
}

int PrintTable(const FIGURES& figures, const std::string& placement) {
  std::printf("%-40s %6s %9s %9s %9s %8s %8s  %s\n", placement.c_str(), "speed", "floor", "stub",
              "vorn", "x floor", "x stub", "limit");
  int missed = 0;
  for (const ROW& row : kRows) {
    const FIGURE figure = {placement, row.metric, row.speed, row.cards};
    const double value = figures.Median(figure, "vorn");
    const double timesFloor = figures.MedianRatio(figure, "vorn", "floor");
    const double timesStub = figures.MedianRatio(figure, "vorn", "stub");
    const bool isKept = IsKept(row.limit, row.bound, value, timesFloor, timesStub);
    missed += isKept ? 0 : 1;
    std::printf("%-40s %6s %9s %9s %9s %8s %8s  %s%s\n", row.text,
                row.speed == 0 ? "" : (std::to_string(row.speed) + " %").c_str(),
                Number(figures.Median(figure, "floor"), row.digits).c_str(),
                Number(figures.Median(figure, "stub"), row.digits).c_str(),
                Number(value, row.digits).c_str(), Ratio(timesFloor).c_str(),
                Ratio(timesStub).c_str(), Words(row.limit, row.bound).c_str(), isKept ? "" : "  !");
  }
  return missed;
}

}  // namespace bench
