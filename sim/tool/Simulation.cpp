#include "sim/tool/Simulation.h"

namespace sim {

SIMULATION::SIMULATION(ADAPTER_OPTIONS options)
    : m_options(std::move(options)), m_rack(m_options.clock), m_adapter(&m_rack, m_options) {
  const auto report = [this](const std::string& line) { m_events.Push(line); };
  m_rack.SetListener(report);
  m_adapter.SetListener(report);
}

SIMULATION::~SIMULATION() {
  m_rack.SetListener(nullptr);
}

RESULT SIMULATION::Plug(int number) {
  RESULT result = m_adapter.Plug(number);
  if (result) {
    m_lastNumber = number;
  }
  return result;
}

RESULT SIMULATION::AddDummy(int number, std::chrono::milliseconds chatter) {
  if (const auto found = m_dummies.find(number); found != m_dummies.end()) {
    found->second->SetChatter(chatter);
    return RESULT::Good();
  }
  auto dummy = std::make_unique<ADAPTER>(nullptr, m_options);
  dummy->SetListener([this](const std::string& line) { m_events.Push(line); });
  RESULT result = dummy->Plug(number);
  if (!result) {
    return result;
  }
  dummy->SetChatter(chatter);
  m_dummies.emplace(number, std::move(dummy));
  return RESULT::Good();
}

RESULT SIMULATION::RemoveDummy(int number) {
  const auto found = m_dummies.find(number);
  if (found == m_dummies.end()) {
    return RESULT::Error("there is no silent or chattering adapter " + std::to_string(number));
  }
  m_dummies.erase(found);
  return RESULT::Good();
}

}  // namespace sim
