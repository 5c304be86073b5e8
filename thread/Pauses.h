#pragma once

#include <chrono>
#include <cstdint>

namespace vorn {

/// The passing of time, as the workers and the master loop need it of the machine: what paces them
/// is handed in, so that a test hands in another. Any thread.
class PAUSES {
 public:
  using CLOCK = std::chrono::steady_clock;

  /// Pauses microseconds; 0 or less is no pause.
  virtual void DelayUs(std::int32_t delayUs) = 0;
  /// Pauses whole seconds.
  virtual void Seconds(int seconds) = 0;
  /// The monotonic clock.
  virtual CLOCK::time_point Now() = 0;

 protected:
  ~PAUSES() = default;  // nobody owns them by this
};

/// Those of the machine: see thread/Pause.h.
class SYSTEM_PAUSES final : public PAUSES {
 public:
  void DelayUs(std::int32_t delayUs) override;
  void Seconds(int seconds) override;
  CLOCK::time_point Now() override { return CLOCK::now(); }
};

}  // namespace vorn
