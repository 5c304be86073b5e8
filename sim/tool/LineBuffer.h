#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace sim {

/// Cuts what comes from a pipe or a socket into lines. A line that grows beyond the limit is
/// reported once and thrown away up to its end.
class LINE_BUFFER {
 public:
  static constexpr std::size_t kMaximumLine = 4096;

  struct LINE {
    std::string text;
    bool tooLong = false;
  };

  /// Takes bytes as they came; answers the lines that are now complete, without their ends.
  std::vector<LINE> Feed(std::string_view bytes);
  /// What is left when no more will come: a last line without an end, or nothing.
  std::vector<LINE> Finish();

 private:
  std::string m_partial;
  bool m_skipping = false;
};

}  // namespace sim
