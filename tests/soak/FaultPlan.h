#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace soak {

/// Who may be missing, or not read, in a flood.
enum class PARTY : std::uint8_t { kNobody, kOperator, kMonitor, kMachine };

/// While the machine floods IO somebody does not read, or goes and comes back.
struct FLOOD {
  PARTY stalled = PARTY::kNobody;
  PARTY away = PARTY::kNobody;
};

/// A fault: what the rack is told at its begin and at its end, and which connections are reset. A
/// flood goes on from its begin to its end.
struct FAULT {
  std::string name;  // for the reader of the report
  std::vector<std::string> begin;
  std::vector<std::string> end;
  bool dropsOperator = false;
  bool dropsMachine = false;
  std::optional<FLOOD> flood = std::nullopt;
};

struct FLOOD_KIND;

/// Draws faults; the same ones in the same order for the same seed. Before those it has floods that
/// fill all queues, as a warm-up: what waits takes memory that is not given back to the system, and
/// is to have been taken before growth is looked for. One thread.
class FAULT_PLAN {
 public:
  explicit FAULT_PLAN(std::uint64_t seed) : m_random(seed) {}

  FAULT Draw();
  /// What comes first was drawn.
  bool IsWarm() const;
  /// Evenly from the range, both ends included.
  int Number(int least, int most);

 private:
  template <class ITEMS>
  auto OneOf(const ITEMS& items);
  std::string HexBytes(int most);

  FAULT SpoiledAnswers();
  FAULT PulledCard();
  FAULT ExchangedCard();
  FAULT ResetController();
  FAULT UnpluggedAdapter();
  FAULT SecondAdapter();
  FAULT UnaskedBytes();
  FAULT LostClients();
  FAULT Flood();
  FAULT FloodOf(const FLOOD_KIND& kind) const;

  std::mt19937_64 m_random;
  std::size_t m_warmUps = 0;  // of the kinds that come first
  int m_adapter = 0;          // the number of the right one
};

}  // namespace soak
