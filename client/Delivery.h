#pragma once

#include "client/CaeRequest.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace client {

/// What became of the lines that went out on IO, which answers none: MON's copy of a line proves
/// that the daemon took it, whole; a report on CAE that it refused it. Knows no connection: its
/// owner tells it what was sent and what has come, all on one thread.
///
/// The daemon copies and carries out in the order of the lines, and says what it refuses in the
/// pass that copies it. So when the copy of a line has come, and then an answer on CAE to a request
/// that was sent after that, all reports of it have come as well.
class DELIVERY {
 public:
  using NUMBER = std::uint64_t;  ///< of a line, in the order of sending, from 1

  NUMBER Sent(std::string_view line);

  /// A line of MON. True where it is the copy of a line that waits for one; lines before it, whose
  /// copies have been left out (MON misses some when it is not read), count as passed by.
  bool Copied(std::string_view line);
  /// A report of CAE's. The number of the line that it is about, the oldest that it fits and that
  /// no report has named yet; 0: none of these lines, somebody else's.
  NUMBER Refused(const REFUSAL& refusal);

  /// The last line whose copy has come: it, and all before it, were read by the daemon.
  NUMBER LastCopied() const { return m_lastCopied; }
  NUMBER LastSent() const { return m_lastSent; }
  /// Lines before this one are asked for no more.
  void Forget(NUMBER before);

 private:
  struct LINE {
    NUMBER number;
    std::string text;
    bool isRefused;
  };
  std::deque<LINE> m_lines;
  NUMBER m_lastSent = 0;
  NUMBER m_lastCopied = 0;
};

}  // namespace client
