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
  struct FOUND {
    std::size_t size = 0;  ///< of the longest separator that is there; 0: none
    bool mayGrow = false;  ///< a longer one is there as far as the bytes go
  };

  FOUND FindAt(std::size_t at) const;
  void Keep(char character);
  void EndLine(std::vector<LINE>& lines);

  std::vector<std::string> m_separators;  // the longer ones first
  LINE m_line;                            // what has come of it
  std::string m_unread;                   // a separator, or the beginning of one, perhaps
};

}  // namespace client
