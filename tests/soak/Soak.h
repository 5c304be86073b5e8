#pragma once

#include "tests/soak/FaultPlan.h"
#include "tests/soak/Machine.h"
#include "tests/soak/Monitor.h"
#include "tests/soak/Operator.h"
#include "tests/soak/RackProcess.h"
#include "tests/soak/Samples.h"
#include "tests/support/ConfigFile.h"
#include "tests/support/Daemon.h"
#include "tests/support/LogFile.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

namespace soak {

struct SOAK_OPTIONS {
  std::chrono::seconds length{600};
  std::uint64_t seed = 1;
  std::string folder;  // for what is left of the run; it exists
};

/// One run: the daemon at full speed with all its clients, a fault every few seconds, a sample
/// every second. After each fault the cards must be found again and every client must be served
/// before the next one comes; of a flood no line may be torn or out of order, and none be missing
/// of which the log does not tell. Runs on the calling thread, with a thread for each client and
/// one for the rack.
class SOAK {
 public:
  explicit SOAK(const SOAK_OPTIONS& options);

  /// To the end of its time, to its first failure, or until told to stop. What went wrong, a
  /// sentence each; empty: nothing.
  std::vector<std::string> Run(const std::atomic<bool>& stop);

 private:
  /// Who receives the lines of floods.
  struct LISTENER {
    const char* interface;
    const FLOOD_LINES& lines;
    std::uint64_t missing = 0;   // of all that were sent, when it was judged last
    std::size_t toldLosses = 0;  // likewise
  };

  void Faults(const std::atomic<bool>& stop);
  void LookAtDescriptors();
  void MakeFault();
  /// From its first line until nobody is stalled or away any more; the last lines are on their way.
  void MakeFlood(const FAULT& fault);
  void PassFlood(std::chrono::milliseconds time);
  CLIENT& ClientOf(PARTY party);
  void Recover();
  std::size_t ToldBounds(const std::string& interface) const;
  /// Lines of the log that tell of something lost on its way to the interface's clients.
  std::size_t ToldLosses(const std::string& interface) const;
  void JudgeLines();
  /// Lets time pass until done() or the limit, sampling; false at the limit.
  template <class DONE>
  bool Pass(std::chrono::milliseconds limit, DONE done);
  /// The same until done() or a failure; where it is not done in three minutes that is one.
  template <class DONE>
  void Await(DONE done, const char* failure);
  bool IsServedSince(TIME time) const;
  void Look();
  void Fail(const std::string& what);
  void Judge();
  void EndDaemon();
  void WriteSummary() const;

  const SOAK_OPTIONS m_options;
  support::CONFIG m_config;
  support::LOG_FILE m_log;
  support::DAEMON m_daemon;
  RACK_PROCESS m_rack;
  WEATHER m_weather;
  OPERATOR m_operator;
  MONITOR m_monitor;
  MACHINE m_machine;
  FAULT_PLAN m_plan;
  SAMPLER m_sampler;
  std::ofstream m_faultTable;
  TIME m_nextSample{};
  std::string m_lastFault;
  int m_faults = 0;
  std::array<LISTENER, 2> m_listeners;
  std::uint64_t m_floods = 0;
  int m_fewestDescriptors = 0;  // since the last fault was over
  double m_longestRecovery = 0;
  std::vector<std::string> m_failures;
};

}  // namespace soak
