#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace client {

/// Cuts what the daemon sends into lines, however TCP delivers it. Each message ends with a
/// separator and a carriage return more; all carriage returns and line feeds at a line's ends are
/// dropped. Bounded: of a line that grows beyond the limit the rest is thrown away up to its end.
class LINE_SPLITTER {
 public:
  static constexpr std::size_t kLongestLine = 4096;

  struct LINE {
    std::string text;
    bool isCut = false;
  };

  /// A line ends at any of them; empty ones do not count. With none at all it ends at a line feed.
  explicit LINE_SPLITTER(std::vector<std::string> separators);

  /// The lines that are now complete. Empty lines are left out.
  std::vector<LINE> Feed(std::string_view bytes);
  /// Forgets what has come of a line.
  void Clear();

 private:
  std::vector<std::string> m_separators;
  std::string m_rest;
  bool m_isCut = false;
};

}  // namespace client
