#pragma once

#include "tests/soak/Clients.h"
#include "tests/soak/FaultPlan.h"
#include "tests/soak/RackProcess.h"
#include "tests/soak/Samples.h"
#include "tests/support/ConfigFile.h"
#include "tests/support/Daemon.h"
#include "tests/support/LogFile.h"

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
/// before the next one comes. Runs on the calling thread, with a thread for each client and one for
/// the rack.
class SOAK {
 public:
  explicit SOAK(const SOAK_OPTIONS& options);

  /// To the end of its time, to its first failure, or until told to stop. What went wrong, a
  /// sentence each; empty: nothing.
  std::vector<std::string> Run(const std::atomic<bool>& stop);

 private:
  void Faults(const std::atomic<bool>& stop);
  void MakeFault();
  /// Keeps the operator away until as much waits for it as ever may.
  void FillBacklog();
  void Recover();
  /// Lets time pass until done() or the limit, sampling; false at the limit.
  template <class DONE>
  bool Pass(std::chrono::milliseconds limit, DONE done);
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
  MACHINE m_machine;
  FAULT_PLAN m_plan;
  SAMPLER m_sampler;
  std::ofstream m_faultTable;
  TIME m_nextSample{};
  int m_faults = 0;
  int m_fewestDescriptors = 0;  // since the last fault was over
  double m_longestRecovery = 0;
  std::vector<std::string> m_failures;
};

}  // namespace soak
