#pragma once

#include "sim/rack/Card.h"

#include <array>
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

 private:
  CARD* At(int address) const;
  bool AdvanceLocked() const;
  Bytes Identify() const;
  void ReportLocked(const std::string& line);

  const CLOCK m_clock;
  mutable std::mutex m_mutex;  // guards all below
  std::array<std::unique_ptr<CARD>, kSlots> m_cards;
  std::string m_version = "2.04";
  LISTENER m_listener;
};

}  // namespace sim
