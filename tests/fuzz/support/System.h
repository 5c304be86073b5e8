#pragma once

#include "thread/Pauses.h"
#include "thread/Thread.h"

#include <cstdint>
#include <vector>

namespace vorn {

// The fuzz targets are linked so that the daemon's threads pass through System.cpp first. While a
// SYSTEM lives they reach it and nothing else, so that an input runs in one thread, without a real
// pause, and always the same way.

namespace fuzz {

/// The machine as a fuzz target wants it: its threads and its clock. One at a time.
///
/// Workers get no thread: the target calls their passes.
class SYSTEM : public PAUSES {
 public:
  SYSTEM();
  virtual ~SYSTEM();
  SYSTEM(const SYSTEM&) = delete;
  SYSTEM& operator=(const SYSTEM&) = delete;

  /// The workers made so far, in their order.
  const std::vector<CThread*>& Workers() const { return m_workers; }
  /// Every worker is asked to stop, and ends as its thread would. To be called before workers are
  /// released.
  void LetWorkersEnd();

  /// A pause of the daemon, on whatever worker's or loop's behalf.
  virtual void Pause(std::int64_t nanoseconds) { static_cast<void>(nanoseconds); }

  void Rest(REST& rest) final { DelayUs(rest.delayUs()); }
  void DelayUs(std::int32_t delayUs) final;
  void Seconds(int seconds) final;
  void SecondsUnless(int seconds, const std::function<bool()>& isOver) final;
  CLOCK::time_point Now() final { return m_now; }

  // For the replaced calls.
  static SYSTEM* Current();
  void AddWorker(void* (*run)(void*), void* worker);

 private:
  struct THREAD {
    void* (*run)(void*);
    CThread* worker;
  };

  CLOCK::time_point m_now{};
  std::vector<CThread*> m_workers;
  std::vector<THREAD> m_threads;  // not ended yet
};

}  // namespace fuzz

}  // namespace vorn
