#pragma once

#include "thread/Rest.h"

#include <chrono>
#include <csignal>
#include <cstdint>
#include <functional>

namespace vorn {

/// The passing of time, as the workers and the master loop need it of the machine: what paces them
/// is handed in, so that a test hands in another. Any thread.
class PAUSES {
 public:
  using CLOCK = std::chrono::steady_clock;

  /// Between two passes of a loop, to be called right behind the last.
  virtual void Rest(REST& rest) = 0;
  /// Pauses microseconds; 0 or less is no pause.
  virtual void DelayUs(std::int32_t delayUs) = 0;
  /// Pauses whole seconds.
  virtual void Seconds(int seconds) = 0;
  /// The same on the thread that takes SIGINT and SIGTERM, which come meanwhile: cut short where it
  /// is over then.
  virtual void SecondsUnless(int seconds, const std::function<bool()>& isOver) = 0;
  /// The monotonic clock.
  virtual CLOCK::time_point Now() = 0;

 protected:
  ~PAUSES() = default;  // nobody owns them by this
};

/// Those of the machine: see thread/Pause.h.
class SYSTEM_PAUSES final : public PAUSES {
 public:
  /// To be made on the thread that takes SIGINT and SIGTERM, once they are blocked there.
  SYSTEM_PAUSES();

  void Rest(REST& rest) override;
  void DelayUs(std::int32_t delayUs) override;
  void Seconds(int seconds) override;
  void SecondsUnless(int seconds, const std::function<bool()>& isOver) override;
  CLOCK::time_point Now() override { return CLOCK::now(); }

 private:
  void AwaitWork(REST& rest);
  void KeepPace(REST& rest, CLOCK::time_point begin);
  bool Await(REST& rest, const REST::SOURCE& source, CLOCK::duration longest) const;

  sigset_t m_letIn{};               // what stays blocked while the signals are let in
  CLOCK::time_point m_nextLetIn{};  // of the loop that takes them
};

}  // namespace vorn
