#include "vornctl/WriteAll.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

namespace ctl {

int WriteAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(descriptor, text.data(), text.size());
    if (written < 0 && errno == EAGAIN) {
      pollfd ready = {descriptor, POLLOUT, 0};
      poll(&ready, 1, -1);
    } else if (written < 0 && errno != EINTR) {
      return errno;
    }
    text.remove_prefix(written > 0 ? static_cast<std::size_t>(written) : 0);
  }
  return 0;
}

}  // namespace ctl
