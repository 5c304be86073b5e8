#pragma once

#include <cstddef>
#include <deque>
#include <string>

namespace ctl {

/// Lines typed before, the oldest first, and the file where they last: one a line, as typed. On the
/// program's thread.
class HISTORY_FILE {
 public:
  static constexpr std::size_t kMost = 1000;  ///< lines; older ones go

  /// Reads it. An empty path: kept for this run only.
  explicit HISTORY_FILE(std::string path);

  const std::deque<std::string>& Lines() const { return m_lines; }
  /// Whether it was kept: not where it is empty, begins with a blank, or is the same as the last.
  bool Add(const std::string& line);

  /// Puts a new file in the old one's place, for its owner only, in folders that are made where
  /// they are missing. Nothing, where there is nothing new; the old file stays where that fails,
  /// and where it is there and could not be read.
  void Write() const;

 private:
  const std::string m_path;
  std::deque<std::string> m_lines;
  bool m_changed = false;
  bool m_isOurs = true;  ///< read, or not there
};

}  // namespace ctl
