#pragma once

#include "sim/line/Adapter.h"
#include "sim/rack/Result.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace sim {

/// One line of a trace: when (since its beginning), which way, what.
struct TRACE_ENTRY {
  std::chrono::microseconds when{0};
  DIRECTION direction = DIRECTION::kRequest;
  Bytes bytes;
};

/// "    0.012345 > 03 40 6F 9A                  ; handshake": seconds, '>' toward the cards or '<'
/// from them, the bytes in hexadecimal, and behind a ';' what they mean.
std::string TraceLine(const TRACE_ENTRY& entry);

/// What a trace file begins with: how to read it, as comments.
std::string TraceHeader();

/// Reads a trace's text; lines that are empty or begin with '#' are skipped, as is all behind a
/// ';'. An error names the line.
RESULT ParseTrace(const std::string& text, std::vector<TRACE_ENTRY>& entries);

/// Answers from a trace in place of a rack: each request must be the next one of the trace and gets
/// what it got there, at the same distance. Used by the adapter's thread through Hook(); its own
/// lock guards it.
class REPLAY {
 public:
  explicit REPLAY(const std::vector<TRACE_ENTRY>& entries);

  /// For ADAPTER::SetReplyHook; the replay must outlive the hook.
  ADAPTER::REPLY_HOOK Hook();
  /// Gets the one line that says how the replay went on: the first difference, or that it is
  /// complete.
  void SetListener(ADAPTER::LISTENER listener);

  /// All requests came as in the trace.
  bool Complete() const;
  /// The first difference, a sentence; empty while there was none. After it nothing is answered.
  std::string Difference() const;
  std::size_t Answered() const;
  std::size_t Expected() const { return m_steps.size(); }

 private:
  struct STEP {
    Bytes request;
    REPLY reply;
  };
  std::optional<REPLY> Next(const REQUEST& request);

  std::vector<STEP> m_steps;
  mutable std::mutex m_mutex;  // guards the three below
  std::size_t m_next = 0;
  std::string m_difference;
  ADAPTER::LISTENER m_listener;
};

}  // namespace sim
