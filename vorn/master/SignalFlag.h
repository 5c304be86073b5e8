#pragma once

#include <atomic>
#include <cstdint>

namespace vorn {

/// The stop flag: the number of the last SIGINT or SIGTERM, -1 while none has come. Written by the
/// signal handler on the main thread, looked at there by the master loop. Atomic and lock-free, so
/// that a handler may write it; relaxed, because nothing else is published through it.
using SIGNAL_FLAG = std::atomic<std::int32_t>;
static_assert(SIGNAL_FLAG::is_always_lock_free);

constexpr std::int32_t kNoSignal = -1;

/// The process-wide stop flag, lent by main before it installs the handler.
inline SIGNAL_FLAG* pSignalFlag = nullptr;

/// Stores the signal's number in the stop flag and does nothing else.
inline void SIGhandler(int signalNumber) {
  pSignalFlag->store(signalNumber, std::memory_order_relaxed);
}

}  // namespace vorn
