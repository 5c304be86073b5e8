#pragma once

#include "sim/line/Descriptor.h"
#include "sim/rack/Result.h"

#include <string>

namespace sim {

/// A pseudo-terminal that stands for a serial adapter: the far end (master) is ours, the near end
/// has a name under /dev/pts and a ttyUSBn link to it. Raw from birth, close-on-exec, the far end
/// non-blocking. The near end is held open here too, so that the far end outlives each opening and
/// closing by others. One thread at a time; the destructor unplugs.
class PTY {
 public:
  PTY() = default;
  ~PTY();
  PTY(const PTY&) = delete;
  PTY& operator=(const PTY&) = delete;

  /// Makes the pair and the link. An existing name is refused, never overwritten.
  RESULT Plug(const std::string& linkPath);

  /// Removes the link (if it is still ours) and closes both ends; who has the near end open gets a
  /// hang-up.
  void Unplug();

  bool Plugged() const { return static_cast<bool>(m_master); }
  int Master() const { return m_master.Get(); }
  const std::string& NearPath() const { return m_nearPath; }
  const std::string& LinkPath() const { return m_linkPath; }
  /// Throws away what was sent toward the near end and not read there.
  void FlushTowardNear();

 private:
  DESCRIPTOR m_master;
  DESCRIPTOR m_near;
  std::string m_nearPath;
  std::string m_linkPath;
};

}  // namespace sim
