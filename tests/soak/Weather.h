#pragma once

#include "tests/support/LogFile.h"

#include <chrono>
#include <mutex>
#include <optional>

namespace soak {

using TIME = std::chrono::steady_clock::time_point;

/// Whether something is being done to the daemon just now. Set by the thread that does it, asked by
/// the clients; its own lock guards it.
class WEATHER {
 public:
  explicit WEATHER(const support::LOG_FILE& log) : m_log(log) {}

  void Storm();
  void Calm();
  /// No fault was in force since then, nor its aftermath; nor has the link been lost all the same,
  /// as happens where the machine is too busy to carry an answer in time. Reads the whole log.
  bool IsCalmSince(TIME time) const;
  /// How often the link was lost so far.
  int LostLinks() const;
  /// How many of those were lost while it was calm; counted when the calm ends.
  int LostInCalm() const;

 private:
  const support::LOG_FILE& m_log;
  mutable std::mutex m_mutex;
  std::optional<TIME> m_calmSince;  // nothing: a storm
  int m_lostBefore = 0;             // links, when it became calm
  int m_lostInCalm = 0;             // links
};

}  // namespace soak
