#pragma once

#include "tests/support/Wait.h"

#include <string>
#include <vector>

namespace support {

/// The system log of a private /dev: collects what programs hand to /dev/log.
class SYSTEM_LOG {
 public:
  /// Throws std::runtime_error where /dev/log exists already.
  SYSTEM_LOG();
  ~SYSTEM_LOG();
  SYSTEM_LOG(const SYSTEM_LOG&) = delete;
  SYSTEM_LOG& operator=(const SYSTEM_LOG&) = delete;

  /// The next message, whole, waiting for it; empty when none came within the limit.
  std::string Receive(milliseconds limit = kLimit);

 private:
  int m_socket = -1;
};

}  // namespace support
