#pragma once

#include "tests/system/CountedTraffic.h"
#include "tests/system/FaultFixture.h"

#include <string>
#include <vector>

/// A daemon that gets more than it can work off at once. What is sent counts, so that a test sees
/// what arrives, in which order, and what does not. Starts by StartForFaults.
class LOAD_FIXTURE : public FAULT_FIXTURE {
 protected:
  /// For all of a load to pass.
  static constexpr support::milliseconds kLoadLimit = 3 * support::kLimit;

  inline static const std::string kOldestAreLost =
      "[ERR] too many messages wait for the card bus, the oldest are lost";
  inline static const std::string kLinkIsLost = "[INF] comm timeout /dev/ttyUSB";

  /// Each in a write of its own, after the daemon has read the one before. False where it stays
  /// unread; the others are sent all the same.
  static bool SendOneByOne(TCP_CLIENT& client, const std::vector<std::string>& messages);

  /// The first so many commands for the card have come over the line, each once and in order, and
  /// no other. They are few enough to wait for a link all together.
  void ExpectOutputs(const COUNTED_CARD& card, int count);
  /// The same for any number of them, with the end behind them. Where a reply came too late, the
  /// link was lost for a moment: the oldest of those that waited may be missing, and the log says
  /// so.
  void ExpectOutputsAndEnd(const COUNTED_CARD& card, int count);

  /// The lines tell of all inputs, from the first to the last; those whose replies came too late
  /// are missing.
  void ExpectAllInputs(const std::vector<std::string>& lines) const;

  /// The adapter goes, and the daemon notices, by a command for the motor card.
  void LoseAdapter();

  BUS_WATCH bus{adapter};
};
