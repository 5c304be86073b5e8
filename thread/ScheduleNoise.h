#pragma once

namespace vorn {

// Schedule noise: in a build with VORN_SCHEDULE_NOISE every lock, unlock, wake-up and queue
// operation lets other threads run now and then, so that orders of events show up in a test run
// that a machine would else show once in a year. In every other build there is nothing of it.

#ifdef VORN_SCHEDULE_NOISE

/// Yields the processor at random, on the caller's thread; any thread. The environment variable
/// VORN_SCHEDULE_SEED, a number, says how (1 if it is not set): another seed, another noise.
void MakeScheduleNoise();

#else

inline void MakeScheduleNoise() {
}

#endif

}  // namespace vorn
