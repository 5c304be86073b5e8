#pragma once

#include "tests/soak/Client.h"
#include "tests/soak/Monitor.h"
#include "tests/soak/RackProcess.h"

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

namespace soak {

/// A controller program at IO: an output must show at the rack, an input must be reported, and both
/// must be seen by the monitor.
class MACHINE : public CLIENT {
 public:
  MACHINE(int port, RACK_PROCESS& rack, MONITOR& monitor, const WEATHER& weather)
      : CLIENT(weather), m_port(port), m_rack(rack), m_monitor(monitor) {}
  ~MACHINE() override { Stop(); }

  /// To send as much as is taken, whole lines that are refused and an output here and there, until
  /// told to end. Where it is dropped meanwhile it leaves when all it has sent is taken; where it
  /// is stalled it goes on sending. A flood is over when its last output is at the card.
  void Flood(bool on) { m_floods = on; }
  /// It is at that: what it was at before is over.
  bool Floods() const { return m_isFlooding; }
  /// How many floods are over.
  std::uint64_t FloodsOver() const { return m_floodsOver; }
  /// Numbered lines that were sent so far.
  std::uint64_t FloodLinesSent() const { return m_lines; }

 protected:
  void Connect() override;
  void Reset() override;
  std::string Exchange() override;
  bool CanExchange() const override { return true; }

 private:
  void RunFlood();
  std::string NextBatch();
  void SendSome(std::string& text);
  void LeaveFlood();
  void AwaitLastOutput();

  const int m_port;
  RACK_PROCESS& m_rack;
  MONITOR& m_monitor;
  std::optional<support::TCP_CLIENT> m_io;
  std::atomic<bool> m_floods{false};
  std::atomic<bool> m_isFlooding{false};
  std::atomic<std::uint64_t> m_floodsOver{0};
  std::atomic<std::uint64_t> m_lines{0};
  unsigned int m_turn = 0;
  unsigned int m_lastOutput = 0;
};

}  // namespace soak
