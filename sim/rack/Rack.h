#pragma once

#include "sim/rack/Cards.h"

#include <array>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace sim {

/// Sixteen slots, the cards in them, and the bus controller that answers for them. Passive: no
/// thread of its own. Every public operation may be called from any thread; one lock guards
/// everything inside.
class RACK {
 public:
  /// Called with each event line ("card 5 block 1 = FB") while the rack's lock is held, on the
  /// thread that caused it: must be quick and must not call the rack.
  using LISTENER = std::function<void(const std::string& line)>;

  /// An empty rack.
  explicit RACK(CLOCK clock = std::chrono::steady_clock::now);

  /// The rack of the examples in the daemon's help: servo 0, motor 1, digital input 3, digital
  /// output 5, keys 8, IR 9, LCD E, analogue F.
  void PopulateDefault();

  /// Puts a card, booted, into slot 0 to 15, in place of the one that is there.
  void Insert(int address, std::uint8_t typeCode);
  /// Empties a slot; an empty one stays empty.
  void Remove(int address);
  /// The type code in a slot, 0 when empty.
  int TypeAt(int address) const;

  /// The four characters of the handshake's answer; shorter ones are filled with blanks.
  void SetVersion(const std::string& version);
  std::string Version() const;

  /// The controller's and the cards' answer to a request body: the reply body, or nothing where the
  /// controller stays silent (an empty body).
  std::optional<Bytes> Answer(const Bytes& request);

  /// All cards reboot, as when the controller's supply fails for a moment.
  void Reset();

  void SetListener(LISTENER listener);

  /// Lets moving things move up to now; true while something still moves. Every other operation
  /// does the same first, so this is needed only by who waits for events.
  bool Advance();

  /// Runs use(card) under the lock. False when the slot is empty.
  bool WithCard(int address, const std::function<void(CARD&)>& use);

  /// Runs use(card) under the lock when the slot holds a card of that class. False otherwise.
  template <class CARD_CLASS>
  bool With(int address, const std::function<void(CARD_CLASS&)>& use) {
    bool found = false;
    WithCard(address, [&](CARD& card) {
      if (auto* wanted = dynamic_cast<CARD_CLASS*>(&card)) {
        use(*wanted);
        found = true;
      }
    });
    return found;
  }

  /// Operator's actions, as CARD has them; an error for an empty slot.
  RESULT Press(int address, int key);
  RESULT Release(int address, int key);
  RESULT Turn(int address, int steps);
  RESULT Set(int address, int channel, int value);

  /// CARD::Value of the card there; -1 for an empty slot.
  int Value(int address, int block) const;

  /// Waits until holds(card) is true for the card of that class in the slot. False after the limit.
  /// holds runs under the lock and must not call the rack.
  template <class CARD_CLASS>
  bool WaitFor(int address, const std::function<bool(const CARD_CLASS&)>& holds,
               std::chrono::milliseconds limit) {
    return WaitForCard(
        address,
        [&holds](const CARD& card) {
          const auto* wanted = dynamic_cast<const CARD_CLASS*>(&card);
          return wanted != nullptr && holds(*wanted);
        },
        limit);
  }
  bool WaitForCard(int address, const std::function<bool(const CARD&)>& holds,
                   std::chrono::milliseconds limit);

  /// Waits until CARD::Value of the block is the value.
  bool WaitForValue(int address, int block, int value, std::chrono::milliseconds limit);

  /// Waits until a row of an LCD begins with the text at the column.
  bool WaitForText(int address, int column, int row, const std::string& text,
                   std::chrono::milliseconds limit);

 private:
  bool AdvanceLocked() const;
  RESULT Operate(int address, const std::function<RESULT(CARD&)>& action);
  Bytes Identify() const;
  void ReportLocked(const std::string& line);

  const CLOCK m_clock;
  mutable std::mutex m_mutex;         // guards all below
  std::condition_variable m_changed;  // after anything that a waiter may look at
  std::array<std::unique_ptr<CARD>, kSlots> m_cards;
  std::string m_version = "2.04";
  LISTENER m_listener;
};

}  // namespace sim
