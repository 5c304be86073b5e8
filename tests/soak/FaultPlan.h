#pragma once

#include <random>
#include <string>
#include <vector>

namespace soak {

/// A fault: what the rack is told at its begin and at its end, and which clients go.
struct FAULT {
  std::string name;  // for the reader of the report
  std::vector<std::string> begin;
  std::vector<std::string> end;
  bool dropsOperator = false;
  bool dropsMachine = false;
  /// The operator stays away until as much waits for it as ever may.
  bool fillsBacklog = false;
};

/// Draws faults; the same ones in the same order for the same seed. Before those it has each kind
/// of lost client once, as a warm-up: what waits for one that is away takes memory that is not
/// given back to the system, and is to have been taken before growth is looked for. One thread.
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

  std::mt19937_64 m_random;
  std::size_t m_lostClients = 0;  // of the kinds that come first
  int m_adapter = 0;              // the number of the right one
};

}  // namespace soak
