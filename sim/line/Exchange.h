#pragma once

#include "sim/rack/Bytes.h"
#include "sim/rack/Time.h"

#include <chrono>
#include <cstdint>
#include <vector>

namespace sim {

/// One complete request frame as it came over the line.
struct REQUEST {
  std::uint64_t number = 0;  // 1 for the adapter's first; never repeated
  TIME when{};
  Bytes frame;  // length byte first

  Bytes Body() const { return frame.empty() ? Bytes{} : Bytes(frame.begin() + 1, frame.end()); }
};

/// Raw bytes of the line and how long after the piece before (the first: after the request) they go
/// out. The bytes include the frame's length byte; nobody checks them.
struct CHUNK {
  std::chrono::microseconds delay{0};
  Bytes bytes;
};

/// All that goes out because of one request; empty: silence.
using REPLY = std::vector<CHUNK>;

}  // namespace sim
