#pragma once

#include "sim/line/Adapter.h"
#include "tests/support/sim/RequestLog.h"

#include <utility>

namespace support {

/// What ADAPTER's base needs before there is an adapter, and still has when its thread has ended.
struct ADAPTER_LOG {
  REQUEST_LOG log;
};

/// The simulated adapter with a log of the requests, to wait for them.
class ADAPTER : private ADAPTER_LOG, public sim::ADAPTER {
 public:
  explicit ADAPTER(sim::RACK* rack, sim::ADAPTER_OPTIONS options = {})
      : sim::ADAPTER(rack, std::move(options)) {
    AddTap([this](sim::DIRECTION direction, sim::TIME when, const sim::Bytes& bytes) {
      // What is shorter than it says was dropped unfinished.
      if (direction == sim::DIRECTION::kRequest && bytes.size() == bytes.front() + std::size_t{1}) {
        log.Add(when, bytes);
      }
    });
  }

  REQUEST_LOG& Requests() { return log; }
  /// Shorter for that of Requests.
  std::optional<sim::REQUEST> WaitForRequest(const REQUEST_LOG::PREDICATE& predicate,
                                             std::chrono::milliseconds limit,
                                             std::uint64_t after = 0) {
    return log.WaitForRequest(predicate, limit, after);
  }
};

}  // namespace support
