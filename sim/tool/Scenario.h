#pragma once

#include "sim/rack/Result.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace sim {

/// Commands with their times, from a text file:
///
///   # a comment
///   at 2.0 press 3.6        two seconds after the start
///   after 0.5 release 3.6   half a second after the line above
///
/// Belongs to one thread.
class SCENARIO {
 public:
  struct STEP {
    std::chrono::milliseconds when;
    std::string command;
  };

  /// Reads the text; all commands are checked before the first is run. The error is a line for each
  /// line of the text that is wrong, which begins with "NAME:LINE: "; there is nothing to run then.
  RESULT Parse(const std::string& text, const std::string& name);

  /// Time of the next step since the start; nothing when all are done.
  std::optional<std::chrono::milliseconds> Next() const;
  /// The steps that are due, removed from what is to come.
  std::vector<STEP> Take(std::chrono::milliseconds sinceStart);

 private:
  std::vector<STEP> m_steps;  // in the order of their times
  std::size_t m_next = 0;
};

}  // namespace sim
