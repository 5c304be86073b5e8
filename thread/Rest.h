#pragma once

#include "thread/Bell.h"

#include <poll.h>

#include <chrono>
#include <cstdint>
#include <functional>

namespace vorn {

/// A loop's rest between two passes: until there is something to do, and then for what is left of
/// its thread delay, counted from the end of the last pass. So what comes late in a long rest goes
/// straight through, and a loop that is always busy makes a pass in each delay.
///
/// All that it asks is asked on the loop's own thread, again after each time that the bell has
/// rung. The loop owns it, and lends it to PAUSES::Rest.
struct REST {
  using TIME = std::chrono::steady_clock::time_point;

  /// What a rest may wait for beside the bell.
  struct SOURCE {
    int descriptor = -1;
    short events = 0;           ///< of poll
    TIME latest = TIME::max();  ///< from then on there is something to do
  };

  BELL bell;
  std::function<std::int32_t()> delayUs;  ///< microseconds; 0 or less is none
  std::function<bool()> isOver;  ///< the loop is to end: it rests no more, not even for its delay
  std::function<bool()> hasWork;
  std::function<SOURCE()> source;  ///< may be empty; asked where there is no work
  /// SIGINT and SIGTERM, which are blocked else, may come while it rests.
  bool takesSignals = false;
};

}  // namespace vorn
