#pragma once

#include "tests/support/unit/Gate.h"

#include <atomic>
#include <cstddef>
#include <vector>

namespace vorn {

// The program is linked so that the socket calls of the code under test pass through here first.

/// How one call behaves. What is set applies to the worker's thread, or to all others where that is
/// said: the clients of a test use the same calls.
class CALL {
 public:
  /// The next `times` calls fail with this errno value, after `before` good ones.
  void Fail(int error, int times = 1, int before = 0);
  /// Failures are for all threads but the worker's.
  void FailOutsideTheWorker(int error, int times = 1);
  /// The worker waits at the gate in each call: before its effect, or behind it.
  void HoldAt(unit::GATE* gate) { m_gate = gate; }
  void Reset();

  /// How often the worker has called and has come back.
  int Begun() const { return m_begun; }
  int Ended() const { return m_ended; }

  // For the replacements.
  void Begin();
  void End();
  void PassGate();
  bool Fails();

 private:
  std::atomic<int> m_error{0};
  std::atomic<int> m_times{0};
  std::atomic<int> m_before{0};
  std::atomic<bool> m_isForWorker{true};
  std::atomic<unit::GATE*> m_gate{nullptr};
  std::atomic<int> m_begun{0};
  std::atomic<int> m_ended{0};
};

struct SOCKET_CALLS {
  CALL socket;
  CALL reuseAddress;  ///< setsockopt of SO_REUSEADDR
  CALL noDelay;       ///< setsockopt of TCP_NODELAY, the first for a connection
  CALL bind;
  CALL listen;
  CALL accept;  ///< its gate stands behind the call
  CALL select;
  CALL recv;
  CALL send;
  CALL close;                             ///< of a socket; the log has calls of its own
  std::atomic<std::size_t> sendLimit{0};  ///< a send of the worker takes at most so much; 0: all

  void Reset();
  /// How much each send of the worker was asked to take, since Reset.
  std::vector<std::size_t> SendSizes() const;
};

extern SOCKET_CALLS socketCalls;  // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)

}  // namespace vorn
