#pragma once

#include <cstdint>
#include <cstdio>

namespace vorn {

/// Pauses n times 100 ns (1 is 0.1 µs, 50000 is 5 ms). The seconds of the request are always 0, so
/// ten million units or more make an invalid request, which returns at once.
void Sleep(unsigned int n);

/// Pauses whole seconds by running the shell command "sleep " + seconds and waiting for it. If no
/// such child can be started, or it ends in failure, the rest of the time is waited here: a caller
/// paced by this pause never spins.
void sleepsec(int seconds);

/// The same command, under way: a pipe that is at its end when it has ended, for pclose. Null where
/// none can be started.
FILE* StartSleepCommand(int seconds);

/// Pauses a thread delay in microseconds; 0 or less is no pause. A signal ends the pause early.
void PauseUs(std::int32_t delayUs);

}  // namespace vorn
