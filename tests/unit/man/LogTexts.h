#pragma once

#include <string>
#include <vector>

namespace unit {

/// A log line as the sources build it: its fixed parts, with something variable between them.
struct LOG_TEXT {
  std::string tag;                 ///< "INF" or "ERR"
  std::vector<std::string> parts;  ///< at least two, the first and last may be empty
  std::string source;              ///< the file, for messages

  /// Whether "[INF] text" can be this line.
  bool Matches(const std::string& line) const;
  std::string Shown() const;
};

/// Every log line of the daemon's sources that has a fixed part.
std::vector<LOG_TEXT> LogTexts();

/// Every string literal of the daemon's sources that begins with `start`.
std::vector<std::string> Literals(const std::string& start);

}  // namespace unit
