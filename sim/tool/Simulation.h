#pragma once

#include "sim/line/Adapter.h"
#include "sim/rack/Rack.h"
#include "sim/tool/WakeQueue.h"

#include <map>
#include <memory>
#include <string>

namespace sim {

/// Everything that one vornsim runs: the rack, its adapter, further adapters that only disturb, and
/// what they report. Made and operated by the program's main thread; the adapters' threads reach it
/// only through the event queue.
class SIMULATION {
 public:
  explicit SIMULATION(ADAPTER_OPTIONS options);
  ~SIMULATION();
  SIMULATION(const SIMULATION&) = delete;
  SIMULATION& operator=(const SIMULATION&) = delete;

  RACK& Rack() { return m_rack; }
  ADAPTER& Adapter() { return m_adapter; }

  /// The one time that rack, line, faults and program go by.
  TIME Now() const { return m_options.clock(); }

  /// The number under which the adapter was plugged in last.
  int LastNumber() const { return m_lastNumber; }
  RESULT Plug(int number);

  /// An adapter of that number with nothing behind it; it chatters by itself where the interval is
  /// not 0.
  RESULT AddDummy(int number, std::chrono::milliseconds chatter);
  RESULT RemoveDummy(int number);

  /// What happened, one line each, oldest first.
  WAKE_QUEUE<std::string>& Events() { return m_events; }

  /// Somebody asked for the end.
  void Quit() { m_quit = true; }
  bool Quitting() const { return m_quit; }

 private:
  const ADAPTER_OPTIONS m_options;
  WAKE_QUEUE<std::string> m_events;
  RACK m_rack;
  ADAPTER m_adapter;
  std::map<int, std::unique_ptr<ADAPTER>> m_dummies;
  int m_lastNumber = 0;
  bool m_quit = false;
};

}  // namespace sim
