#pragma once

#include "thread/UniqueFd.h"

#include <atomic>

namespace vorn {

/// Wakes one loop out of its rest; an eventfd, so that a rest can wait for other descriptors too.
///
/// Whoever gives the loop something to do rings behind it: any thread. The loop arms the bell, then
/// looks whether there is something to do, and only then waits. So nothing is missed: what was
/// given before the bell was armed is seen by that look, and what is given later rings. A loop that
/// does not rest is not rung for: that costs no call of the system.
class BELL {
 public:
  enum STATE : unsigned {
    kAwake = 0,
    kPacing = 1,   ///< in the delay between two passes: only what rings through wakes it
    kResting = 2,  ///< until there is something to do
  };

  BELL();
  BELL(const BELL&) = delete;
  BELL& operator=(const BELL&) = delete;
  ~BELL() = default;

  /// There is something to do.
  void Ring();
  /// The same, and it cannot wait for the delay: an end, another delay.
  void RingThrough();

  // The loop's thread only.
  /// From here on those who ring are heard.
  void Arm(STATE state);
  /// The loop waits no more.
  void Disarm();
  /// Readable once it has rung, until Clear. -1 where the system refused one: the loop has to look
  /// by itself then, now and then.
  int Descriptor() const { return m_event.Get(); }
  void Clear();

 private:
  UNIQUE_FD m_event;
  /// Changed by exchanges only, whoever does it: of two of them the later sees what was done before
  /// the earlier.
  std::atomic<unsigned> m_state{kAwake};
};

}  // namespace vorn
