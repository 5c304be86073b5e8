#pragma once

#include <cstdint>

namespace vorn {

/// What a client of CAE or IO leaves with, alone in its message but for the separator.
constexpr const char* kExit = "EXIT";

/// The last words to it.
constexpr const char* kFarewell = "VORN: Bye Bye...";

/// So many seconds they have to reach the client before its connection is closed.
constexpr int kFarewellWaitS = 1;

/// What the CAE commands need of the daemon beside its queues and the card table. Implemented by
/// VORN; called on the master loop's thread.
class DAEMON_CONTROL {
 public:
  /// Sets the pause of all five loops, in microseconds.
  virtual void SetThreadDelays(std::int32_t delayUs) = 0;
  /// The global polling switch.
  virtual bool Polling() = 0;
  virtual void SetPolling(bool on) = 0;
  /// Ends the CAE client's connection.
  virtual void CloseCaeConnection() = 0;
  /// The master loop waits; the workers go on.
  virtual void PauseSeconds(int seconds) = 0;

 protected:
  ~DAEMON_CONTROL() = default;  // nobody owns it by this
};

}  // namespace vorn
