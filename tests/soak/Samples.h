#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <fstream>
#include <optional>
#include <string>

namespace soak {

/// What the daemon took of the machine at one time.
struct SAMPLE {
  double seconds = 0;  // since the begin
  long residentKiB = 0;
  int descriptors = 0;
  int threads = 0;
  double cpuPercent = 0;  // of one core, children waited for included, since the sample before
  double exchanges = 0;   // of all clients a second, since the sample before
};

/// The highest figures of a part of the run.
struct PEAKS {
  long residentKiB = 0;
  int fewestThreads = 0;
  int mostThreads = 0;
  std::optional<int> settledDescriptors;
};

/// Samples the daemon, writes each sample as a line of a table, and keeps the peaks of the first
/// tenth of the run, which is the measure, and of the rest. A warm-up that takes longer than a
/// tenth is the measure as a whole. One thread.
class SAMPLER {
 public:
  SAMPLER(pid_t daemon, const std::string& tablePath, std::chrono::seconds length);

  double Seconds() const;
  void EndWarmUp() { m_isWarm = true; }
  /// Takes a sample; exchanges is their number so far.
  SAMPLE Take(std::uint64_t exchanges);
  int Descriptors() const;
  /// The fewest descriptors of a time without a fault: what a pause's pipe or a client on its way
  /// adds for a moment is not in it.
  void TakeSettledDescriptors(int descriptors);

  const PEAKS& FirstTenth() const { return m_firstTenth; }
  const PEAKS& Rest() const { return m_rest; }

 private:
  PEAKS& Now() { return !m_isWarm || Seconds() * 10 < m_length ? m_firstTenth : m_rest; }
  /// User and system time of all threads and of children that were waited for.
  double CpuSeconds() const;

  const pid_t m_daemon;
  const double m_length;
  const std::chrono::steady_clock::time_point m_begin = std::chrono::steady_clock::now();
  std::ofstream m_table;
  bool m_isWarm = false;
  PEAKS m_firstTenth;
  PEAKS m_rest;
  double m_lastSeconds = 0;
  double m_lastCpu;
  std::uint64_t m_lastExchanges = 0;
};

}  // namespace soak
