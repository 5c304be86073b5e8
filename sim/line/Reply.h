#pragma once

#include "sim/rack/Bytes.h"

#include <chrono>
#include <functional>
#include <optional>
#include <vector>

namespace sim {

/// Raw bytes of the line and how long after the piece before (the first: after the request) they go
/// out. The bytes include the frame's length byte; nobody checks them.
struct CHUNK {
  std::chrono::microseconds delay{0};
  Bytes bytes;
};

/// All that goes out because of one request; empty: silence.
using REPLY = std::vector<CHUNK>;

}  // namespace sim
