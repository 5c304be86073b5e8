#include "tests/soak/Soak.h"

#include "tests/support/ListeningPorts.h"
#include "tests/support/ProcessInfo.h"
#include "tests/support/Text.h"
#include "tests/support/Wait.h"

#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <stdexcept>

namespace soak {

namespace {

using std::chrono::milliseconds;

constexpr int kThreads = 5;
constexpr long kMemoryGrowthKiB = 64;
/// A busy machine can be too late with an answer, which costs a link that no fault has touched: one
/// in so many calms between two faults may be lost so, and one more.
constexpr int kCalmsToALostLink = 20;
constexpr milliseconds kSampleStep{1000};
/// Between two looks at what may have ended.
constexpr milliseconds kStep{50};
/// What a flood goes on for before somebody leaves, and after all are back.
constexpr milliseconds kFloodPhase{1000};
/// For the first connection and the first discovery, and after a fault for everything to work
/// again: searches, pauses and greetings of several seconds come one after the other.
constexpr milliseconds kRecoveryLimit{180'000};

support::CONFIG MakeConfig(const std::string& logFile) {
  const std::vector<int> ports = support::FreePorts(3);
  support::CONFIG config;
  config.logFile = logFile;
  config.speedPercent = "100";
  config.initPollState = "TRUE";
  config.cae = {"CAE", ports[0], "\r\n", "\r\n"};
  config.io = {"IO", ports[1], "\r\n", "\r\n"};
  config.mon = {"MON", ports[2], "\r\n", "\r\n"};
  return config;
}

/// Configures and starts it; its process number.
pid_t StartDaemon(support::DAEMON& daemon, const support::CONFIG& config) {
  std::filesystem::create_directories("/run/vorn");
  support::WriteFile(support::kConfigPath, config.Text());
  const int status = daemon.Start();
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0 || daemon.Pid() <= 0) {
    throw std::runtime_error("the daemon does not start: " + daemon.Output());
  }
  daemon.LowerPriority();
  // The starter ends before the workers are there.
  if (!support::WaitUntil([&] { return support::ThreadCount(daemon.Pid()) == kThreads; })) {
    throw std::runtime_error("the daemon does not start its workers");
  }
  return daemon.Pid();
}

}  // namespace

SOAK::SOAK(const SOAK_OPTIONS& options)
    : m_options(options),
      m_config(MakeConfig(options.folder + "/vorn.log")),
      m_log(m_config.logFile),
      m_daemon(options.folder + "/output.txt"),
      m_rack(options.folder),
      m_weather(m_log),
      m_operator(m_config.cae.port, m_weather),
      m_monitor(m_config.mon.port, m_weather),
      m_machine(m_config.io.port, m_rack, m_monitor, m_weather),
      m_plan(options.seed),
      m_sampler(StartDaemon(m_daemon, m_config), options.folder + "/samples.txt", options.length),
      m_faultTable(options.folder + "/faults.txt"),
      m_listeners{{{"CAE", m_operator.Lines()}, {"MON", m_monitor.Lines()}}} {
  m_faultTable << "# seconds until_all_was_well_again fault\n";
}

std::vector<std::string> SOAK::Run(const std::atomic<bool>& stop) {
  try {
    m_operator.Start();
    m_monitor.Start();
    m_machine.Start();
    Recover();
    Faults(stop);
  } catch (const std::exception& error) {
    Fail(error.what());
  }
  if (!m_failures.empty() && !m_lastFault.empty()) {
    Fail("the last fault was: " + m_lastFault);
  }
  m_operator.Stop();
  m_machine.Stop();
  m_monitor.Stop();
  Judge();
  EndDaemon();
  WriteSummary();
  return m_failures;
}

void SOAK::Faults(const std::atomic<bool>& stop) {
  const auto length = static_cast<double>(m_options.length.count());
  const auto isOver = [&] { return stop || m_sampler.Seconds() >= length || !m_failures.empty(); };
  while (!isOver()) {
    Pass(milliseconds(m_plan.Number(1000, 4000)), isOver);
    if (isOver()) {
      return;
    }
    LookAtDescriptors();
    MakeFault();
  }
}

/// In a moment without a command of the operator's: one pause after the other has its pipe open,
/// and hardly a look falls between two of them.
void SOAK::LookAtDescriptors() {
  m_operator.Stall(true);
  Await([this] { return m_operator.IsIdle(); }, "the operator does not come to its rest");
  Look();
  m_operator.Stall(false);
  m_sampler.TakeSettledDescriptors(m_fewestDescriptors);
}

void SOAK::MakeFault() {
  const FAULT fault = m_plan.Draw();
  m_lastFault = fault.name;
  const double begin = m_sampler.Seconds();
  m_weather.Storm();
  if (fault.flood) {
    MakeFlood(fault);
  } else {
    for (const std::string& line : fault.begin) {
      m_rack.Order(line);
    }
    if (fault.dropsOperator) {
      m_operator.Drop();
    }
    if (fault.dropsMachine) {
      m_machine.Drop();
      m_monitor.Drop();
    }
    Pass(milliseconds(m_plan.Number(100, 2000)), [this] { return !m_failures.empty(); });
  }
  for (const std::string& line : fault.end) {
    m_rack.Order(line);
  }
  m_rack.Order("clear");
  if (fault.flood) {
    Await([this] { return m_machine.FloodsOver() >= m_floods; }, "a flood was not over");
  }
  Recover();
  JudgeLines();
  ++m_faults;
  if (m_plan.IsWarm()) {
    m_sampler.EndWarmUp();
  }
  const double took = m_sampler.Seconds() - begin;
  m_longestRecovery = std::max(m_longestRecovery, took);
  m_faultTable << begin << ' ' << took << ' ' << fault.name << std::endl;
}

void SOAK::MakeFlood(const FAULT& fault) {
  const FLOOD& flood = *fault.flood;
  const std::size_t toldBefore = ToldBounds("CAE");
  const std::size_t toldBeforeOfMonitor = ToldBounds("MON");
  m_machine.Flood(true);
  Await([this] { return m_machine.Floods(); }, "no flood has begun");
  PassFlood(kFloodPhase);
  for (const std::string& line : fault.begin) {
    m_rack.Order(line);
  }
  if (flood.away != PARTY::kNobody) {
    CLIENT& client = ClientOf(flood.away);
    client.Leave();
    Await([&] { return client.IsIdle(); }, "a client cannot leave a flood");
  }
  if (flood.away == PARTY::kOperator) {
    // As many reports of refused lines wait for it as ever may.
    Await([&] { return ToldBounds("CAE") > toldBefore; },
          "what waits for the operator finds no bound");
  }
  if (flood.stalled != PARTY::kNobody) {
    CLIENT& client = ClientOf(flood.stalled);
    client.Stall(true);
    // The machine goes on sending.
    Await([&] { return client.IsIdle() || flood.stalled == PARTY::kMachine; },
          "a client does not come to its rest");
  }
  if (flood.stalled == PARTY::kMonitor) {
    // Here too: so the warm-up has seen the most that may wait.
    Await([&] { return ToldBounds("MON") > toldBeforeOfMonitor; },
          "what waits for the monitor finds no bound");
  }
  PassFlood(milliseconds(m_plan.Number(1000, 5000)));
  if (flood.stalled != PARTY::kNobody) {
    ClientOf(flood.stalled).Stall(false);
  }
  if (flood.away != PARTY::kNobody) {
    CLIENT& client = ClientOf(flood.away);
    const int before = client.Connections();
    client.Return();
    Await([&] { return client.Connections() > before; }, "a client cannot come back into a flood");
  }
  PassFlood(kFloodPhase);
  m_machine.Flood(false);
  ++m_floods;
}

void SOAK::PassFlood(milliseconds time) {
  Pass(time, [this] { return !m_failures.empty(); });
}

template <class DONE>
void SOAK::Await(DONE done, const char* failure) {
  if (!Pass(kRecoveryLimit, [&] { return !m_failures.empty() || done(); })) {
    Fail(std::string(failure) + " within three minutes");
  }
}

std::size_t SOAK::ToldBounds(const std::string& interface) const {
  return m_log.LinesWith("too many messages wait on " + interface).size();
}

CLIENT& SOAK::ClientOf(PARTY party) {
  switch (party) {
    case PARTY::kOperator:
      return m_operator;
    case PARTY::kMonitor:
      return m_monitor;
    default:
      return m_machine;
  }
}

std::size_t SOAK::ToldLosses(const std::string& interface) const {
  const std::array<std::string, 4> tellers = {
      "too many messages wait on " + interface + " interface",
      "connection is closed by client on " + interface + " interface",
      "socket write error on " + interface + " interface",
      "too many messages wait from IO interface"};
  std::size_t told = 0;
  for (const std::string& line : m_log.AllLines()) {
    told += static_cast<std::size_t>(std::any_of(
        tellers.begin(), tellers.end(),
        [&](const std::string& teller) { return line.find(teller) != std::string::npos; }));
  }
  return told;
}

/// After the clients were served again: what was on its way to them is there.
void SOAK::JudgeLines() {
  for (LISTENER& listener : m_listeners) {
    const std::string where = std::string(" on ") + listener.interface;
    const std::uint64_t missing = m_machine.FloodLinesSent() - listener.lines.Received();
    const std::size_t told = ToldLosses(listener.interface);
    if (missing > listener.missing && told == listener.toldLosses) {
      Fail(std::to_string(missing - listener.missing) + " lines of a flood are missing" + where +
           " without a word in the log");
    }
    listener.missing = missing;
    listener.toldLosses = told;
  }
}

void SOAK::Recover() {
  const std::uint64_t before = m_operator.Rediscoveries();
  m_operator.Rediscover();
  Await([&] { return m_operator.Rediscoveries() > before; }, "the cards were not found again");
  const TIME found = std::chrono::steady_clock::now();
  Await([&] { return IsServedSince(found); }, "a client was not served after a fault");
  m_fewestDescriptors = std::numeric_limits<int>::max();
  m_weather.Calm();
}

bool SOAK::IsServedSince(TIME time) const {
  return m_operator.LastServed() >= time && m_monitor.LastServed() >= time &&
         m_machine.LastServed() >= time;
}

template <class DONE>
bool SOAK::Pass(milliseconds limit, DONE done) {
  const TIME end = std::chrono::steady_clock::now() + limit;
  while (!done()) {
    if (std::chrono::steady_clock::now() >= end) {
      return false;
    }
    Look();
    std::this_thread::sleep_for(kStep);
  }
  return true;
}

void SOAK::Look() {
  if (!m_daemon.Running()) {
    throw std::runtime_error("the daemon has ended: " + m_daemon.Output());
  }
  if (!m_rack.Running()) {
    throw std::runtime_error("the rack has ended");
  }
  for (const CLIENT* client :
       std::initializer_list<const CLIENT*>{&m_operator, &m_monitor, &m_machine}) {
    if (!client->Failure().empty()) {
      throw std::runtime_error(client->Failure());
    }
  }
  for (const LISTENER& listener : m_listeners) {
    if (const std::string fault = listener.lines.Fault(); !fault.empty()) {
      throw std::runtime_error(fault + " on " + listener.interface);
    }
  }
  m_fewestDescriptors = std::min(m_fewestDescriptors, m_sampler.Descriptors());
  const TIME now = std::chrono::steady_clock::now();
  if (now >= m_nextSample) {
    m_nextSample = now + kSampleStep;
    m_sampler.Take(m_operator.Exchanges() + m_machine.Exchanges());
  }
}

void SOAK::Fail(const std::string& what) {
  m_failures.push_back(what);
}

void SOAK::Judge() {
  m_weather.Storm();  // the last calm counts too
  if (m_weather.LostInCalm() > 1 + m_faults / kCalmsToALostLink) {
    Fail("the link was lost " + std::to_string(m_weather.LostInCalm()) +
         " times although nothing was wrong");
  }
  const PEAKS& measure = m_sampler.FirstTenth();
  const PEAKS& rest = m_sampler.Rest();
  if (rest.residentKiB == 0 && m_failures.empty()) {
    Fail("it ended before growth could be looked for");
  }
  if (rest.residentKiB - measure.residentKiB > kMemoryGrowthKiB) {
    Fail("the memory grew by " + std::to_string(rest.residentKiB - measure.residentKiB) +
         " kB after the first tenth");
  }
  if (m_failures.empty() && (!measure.settledDescriptors || !rest.settledDescriptors)) {
    Fail("it had no calm in which to look at the descriptors");
  }
  if (measure.settledDescriptors && rest.settledDescriptors &&
      *rest.settledDescriptors > *measure.settledDescriptors) {
    Fail("the descriptors grew by " +
         std::to_string(*rest.settledDescriptors - *measure.settledDescriptors) +
         " after the first tenth");
  }
  for (const PEAKS* peaks : {&measure, &rest}) {
    if (peaks->mostThreads > 0 &&
        (peaks->fewestThreads != kThreads || peaks->mostThreads != kThreads)) {
      Fail("the daemon had " + std::to_string(peaks->fewestThreads) + " to " +
           std::to_string(peaks->mostThreads) + " threads");
    }
  }
}

void SOAK::EndDaemon() {
  m_daemon.Signal(SIGTERM);
  const std::optional<int> status = m_daemon.WaitForEnd();
  if (!status) {
    Fail("the daemon does not end on SIGTERM");
  } else if (!WIFEXITED(*status) || WEXITSTATUS(*status) != 0) {
    Fail("the daemon did not end with status 0");
  }
  if (!m_daemon.Output().empty()) {
    Fail("the daemon wrote to its standard streams: " + m_daemon.Output());
  }
}

void SOAK::WriteSummary() const {
  const PEAKS& measure = m_sampler.FirstTenth();
  const PEAKS& rest = m_sampler.Rest();
  std::ofstream summary(m_options.folder + "/summary.txt");
  summary << "seed " << m_options.seed << "\n"
          << "length " << m_sampler.Seconds() << " s\n"
          << "faults " << m_faults << ", the longest over after " << m_longestRecovery << " s\n"
          << "exchanges " << m_operator.Exchanges() << " of the operator, " << m_machine.Exchanges()
          << " of the machine; spoiled by faults: " << m_operator.Spoiled() + m_machine.Spoiled()
          << "\n"
          << "lines of floods " << m_machine.FloodLinesSent() << ", reported to the operator "
          << m_operator.Lines().Received() << ", copied to the monitor "
          << m_monitor.Lines().Received() << "\n"
          << "links lost " << m_weather.LostLinks() << ", without a fault "
          << m_weather.LostInCalm() << "\n"
          << "memory at most " << measure.residentKiB << " kB in the first tenth, "
          << rest.residentKiB << " kB after it\n"
          << "descriptors without a fault " << measure.settledDescriptors.value_or(0)
          << " in the first tenth, " << rest.settledDescriptors.value_or(0) << " after it\n"
          << "threads " << measure.fewestThreads << " to "
          << std::max(measure.mostThreads, rest.mostThreads) << "\n";
  for (const std::string& failure : m_failures) {
    summary << "FAILED: " << failure << "\n";
  }
  if (m_failures.empty()) {
    summary << "passed\n";
  }
}

}  // namespace soak
