#pragma once

namespace vorn {

// Schedule noise: in a build with VORN_SCHEDULE_NOISE every lock, unlock, wake-up and queue
// operation lets other threads run now and then, so that orders of events show up in a test run
// that a machine would else show once in a year. Most of it is where threads meet: a thread that
// has just handed something to another, or got something from one, yields often; one that only
// looks, pass after pass, whether there is anything does it rarely, so that it costs hardly more
// of a processor than in another build. In every other build there is nothing of it.

#ifdef VORN_SCHEDULE_NOISE

/// Yields the processor at random, on the caller's thread; any thread. The environment variable
/// VORN_SCHEDULE_SEED, a number, says how (1 if it is not set): another seed, another noise.
void MakeScheduleNoise();

/// The same, where threads meet: the caller's next operations are among those with much noise. So
/// are a thread's first ones.
void MakeMeetingNoise();

#else

inline void MakeScheduleNoise() {
}

inline void MakeMeetingNoise() {
}

#endif

}  // namespace vorn
