#pragma once

#include <chrono>
#include <functional>

namespace sim {

using TIME = std::chrono::steady_clock::time_point;

/// Where rack, line and faults take the time from: the steady clock, or in a test whatever the test
/// says.
using CLOCK = std::function<TIME()>;

}  // namespace sim
