#pragma once

#include "sim/line/Descriptor.h"

#include <functional>
#include <string>

namespace sim {

/// Notices who opens and closes a file. Where that cannot be watched, the file is taken to be open,
/// and nothing is noticed. Belongs to one thread.
class OPENINGS {
 public:
  /// True: somebody opened the file that nobody had open; false: the last has closed it.
  using TELL = std::function<void(bool isOpen)>;

  void Watch(const std::string& path);
  void Stop();

  /// Readable when Read has something to tell; -1 while nothing is watched.
  int Descriptor() const { return m_events.Get(); }
  void Read(const TELL& tell);

  bool IsOpen() const { return m_open > 0 || !m_events; }

 private:
  DESCRIPTOR m_events;  // inotify
  int m_open = 0;       // how many have it open now, besides who had it before Watch
};

}  // namespace sim
