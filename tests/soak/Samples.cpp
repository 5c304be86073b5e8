#include "tests/soak/Samples.h"

#include "tests/support/ProcessInfo.h"
#include "tests/support/Text.h"

#include <unistd.h>

#include <algorithm>
#include <sstream>
#include <stdexcept>

namespace soak {

SAMPLER::SAMPLER(pid_t daemon, const std::string& tablePath, std::chrono::seconds length)
    : m_daemon(daemon),
      m_length(static_cast<double>(length.count())),
      m_table(tablePath),
      m_lastCpu(CpuSeconds()) {
  m_table << "# seconds resident_kB descriptors threads cpu_percent exchanges_a_second\n";
  if (!m_table) {
    throw std::runtime_error("cannot write " + tablePath);
  }
}

double SAMPLER::Seconds() const {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_begin).count();
}

double SAMPLER::CpuSeconds() const {
  constexpr int kFieldsBeforeUtime = 11;  // counted from behind the name in brackets
  const std::string text = support::ReadFile("/proc/" + std::to_string(m_daemon) + "/stat");
  std::istringstream fields(text.substr(std::min(text.rfind(')') + 1, text.size())));
  std::string skipped;
  for (int i = 0; i < kFieldsBeforeUtime; ++i) {
    fields >> skipped;
  }
  double ticks = 0;
  for (int i = 0; i < 4; ++i) {  // utime, stime, cutime, cstime
    double field = 0;
    fields >> field;
    ticks += field;
  }
  return ticks / static_cast<double>(sysconf(_SC_CLK_TCK));
}

int SAMPLER::Descriptors() const {
  return static_cast<int>(support::OpenDescriptors(m_daemon).size());
}

SAMPLE SAMPLER::Take(std::uint64_t exchanges) {
  SAMPLE sample{.seconds = Seconds(),
                .residentKiB = support::ResidentKiB(m_daemon),
                .descriptors = Descriptors(),
                .threads = support::ThreadCount(m_daemon)};
  const double cpu = CpuSeconds();
  const double passed = std::max(sample.seconds - m_lastSeconds, 1e-3);
  sample.cpuPercent = (cpu - m_lastCpu) / passed * 100;
  sample.exchanges = static_cast<double>(exchanges - m_lastExchanges) / passed;
  m_lastSeconds = sample.seconds;
  m_lastCpu = cpu;
  m_lastExchanges = exchanges;
  m_table << sample.seconds << ' ' << sample.residentKiB << ' ' << sample.descriptors << ' '
          << sample.threads << ' ' << sample.cpuPercent << ' ' << sample.exchanges << std::endl;
  PEAKS& peaks = Now();
  peaks.residentKiB = std::max(peaks.residentKiB, sample.residentKiB);
  peaks.mostThreads = std::max(peaks.mostThreads, sample.threads);
  peaks.fewestThreads =
      peaks.fewestThreads == 0 ? sample.threads : std::min(peaks.fewestThreads, sample.threads);
  return sample;
}

void SAMPLER::TakeSettledDescriptors(int descriptors) {
  std::optional<int>& settled = Now().settledDescriptors;
  settled = std::max(settled.value_or(0), descriptors);
}

}  // namespace soak
