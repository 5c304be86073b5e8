#pragma once

#include "bench/compare/Subjects.h"

#include <cstddef>

namespace bench {

/// Microseconds that something took, time after time.
struct TIMES {
  double median = 0;
  double p99 = 0;
  int lost = 0;  // that did not arrive at all
};

struct COMMAND_TIMES {
  TIMES toBus;            // from the client's write until the far end has read it
  double sleepsEach = 0;  // how often the subject's threads went to sleep, for each command
};
/// Commands apart: after each a pause of the gap to twice the gap, at random.
COMMAND_TIMES MeasureCommands(SUBJECT& subject, NANOSECONDS gap, int count);

struct LINE_TIMES {
  TIMES toClient;    // from the far end's write until the client has read it
  TIMES fromChange;  // from the input's change, which waits for a poll
};
/// Input lines apart, likewise.
LINE_TIMES MeasureLines(SUBJECT& subject, NANOSECONDS gap, int count);

/// Commands a second, each as soon as the one before it has arrived.
double MeasureRate(SUBJECT& subject, NANOSECONDS time);

struct POLLING {
  double share = 0;      // of the line's time in which bytes were on it
  double processor = 0;  // percent of one
};
POLLING MeasurePolling(SUBJECT& subject, NANOSECONDS time);

struct IDLING {
  double processorMs = 0;    // in ten seconds
  double sleepsASecond = 0;  // of all threads
};
IDLING MeasureIdling(SUBJECT& subject, NANOSECONDS time);

struct FLOOD {
  std::size_t arrived = 0;
  std::size_t outOfOrder = 0;  // that came behind a later one for the same card
  double seconds = 0;
};
/// So many commands in one write, to sixteen cards in turn.
FLOOD MeasureFlood(SUBJECT& subject, std::size_t count);

}  // namespace bench
