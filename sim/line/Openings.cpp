#include "sim/line/Openings.h"

#include <sys/inotify.h>

#include <array>

namespace sim {

void OPENINGS::Watch(const std::string& path) {
  m_events = DESCRIPTOR(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  if (m_events && inotify_add_watch(m_events.Get(), path.c_str(),
                                    IN_OPEN | IN_CLOSE_WRITE | IN_CLOSE_NOWRITE) < 0) {
    m_events.Close();
  }
}

void OPENINGS::Stop() {
  m_events.Close();
  m_open = 0;
}

void OPENINGS::Read(const TELL& tell) {
  alignas(inotify_event) std::array<char, 4096> buffer{};
  ssize_t count = 0;
  while (m_events && (count = read(m_events.Get(), buffer.data(), buffer.size())) > 0) {
    // One file is watched, so no event has a name behind it and all have the same size.
    for (std::size_t at = 0; at + sizeof(inotify_event) <= static_cast<std::size_t>(count);
         at += sizeof(inotify_event)) {
      const auto* event = reinterpret_cast<const inotify_event*>(buffer.data() + at);
      if ((event->mask & IN_OPEN) != 0) {
        ++m_open;
        if (m_open == 1) {
          tell(true);
        }
      }
      if ((event->mask & (IN_CLOSE_WRITE | IN_CLOSE_NOWRITE)) != 0 && m_open > 0) {
        --m_open;
        if (m_open == 0) {
          tell(false);
        }
      }
    }
  }
}

}  // namespace sim
