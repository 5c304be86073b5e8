#pragma once

#include "thread/Lock.h"
#include "vorn/bus/PerifCard.h"

#include <array>
#include <cstddef>
#include <mutex>
#include <utility>

namespace vorn {

/// The daemon's picture of the card bus: record i describes bus address i for 0 to 15; the
/// seventeenth is cleared with the others and describes none.
///
/// Shared between the serial worker, which fills it, and the master loop, which reads it and sets
/// outputs and poll flags. One lock guards all records; it is held only inside With, never across a
/// pause, an exchange on the bus or a queue operation.
class CARD_TABLE {
 public:
  static constexpr std::size_t kRecords = 17;

  CARD_TABLE() {
    for (std::size_t i = 0; i < kRecords; ++i) {
      m_cards[i].clearPerifCard();
      m_cards[i].address = static_cast<std::uint8_t>(i);
    }
  }
  CARD_TABLE(const CARD_TABLE&) = delete;
  CARD_TABLE& operator=(const CARD_TABLE&) = delete;
  ~CARD_TABLE() = default;

  /// Calls action(PERIFCARD&) on one record under the lock and returns its result, by value.
  template <class ACTION>
  auto With(std::size_t address, ACTION&& action) {
    const std::lock_guard lock(m_lock);
    return std::forward<ACTION>(action)(m_cards.at(address));
  }

 private:
  CLock m_lock;
  std::array<PERIFCARD, kRecords> m_cards;
};

}  // namespace vorn
