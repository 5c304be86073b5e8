#pragma once

#include "tests/support/Wait.h"

#include <string>
#include <string_view>
#include <vector>

namespace support {

/// The daemon's log file, read from outside. Lines are given without their time stamp, as
/// "[INF] vorn is started"; a line that does not begin with a good time stamp is given whole, after
/// "BAD LINE: ", and so equals nothing that a test expects.
class LOG_FILE {
 public:
  explicit LOG_FILE(std::string path) : m_path(std::move(path)) {}

  const std::string& Path() const { return m_path; }
  std::string Text() const;

  std::vector<std::string> AllLines() const;
  /// Those that contain the text, in order.
  std::vector<std::string> LinesWith(std::string_view text) const;
  /// Those that are that line.
  int Count(std::string_view line) const;

  /// Waits until the log holds the line at least count times.
  bool WaitForLine(std::string_view line, int count = 1, milliseconds limit = kLimit) const;

 private:
  const std::string m_path;
};

/// "2026-01-01 12:00:00 [INF] text" without the time stamp and its blank.
std::string WithoutTimeStamp(const std::string& line);

}  // namespace support
