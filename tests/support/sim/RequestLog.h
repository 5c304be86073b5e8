#pragma once

#include "sim/line/Exchange.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <vector>

namespace support {

/// The last kCapacity request frames, oldest first. Written by the adapter's thread, read and
/// waited for by any; its own lock guards all.
class REQUEST_LOG {
 public:
  static constexpr std::size_t kCapacity = 65536;
  using PREDICATE = std::function<bool(const sim::REQUEST&)>;

  /// Gives the frame its number.
  void Add(sim::TIME when, const sim::Bytes& frame);

  /// Number of the last request, 0 when there was none: "from here on" for WaitForRequest.
  std::uint64_t Last() const;

  /// All that are still held and have a number above after.
  std::vector<sim::REQUEST> Since(std::uint64_t after = 0) const;

  /// The first request with a number above after that fulfils the predicate, waiting for it until
  /// the limit. The predicate runs under the log's lock and must not call the log.
  std::optional<sim::REQUEST> WaitForRequest(const PREDICATE& predicate,
                                             std::chrono::milliseconds limit,
                                             std::uint64_t after = 0);

  /// The same for a frame's exact bytes, length byte included.
  std::optional<sim::REQUEST> WaitForFrame(const sim::Bytes& frame, std::chrono::milliseconds limit,
                                           std::uint64_t after = 0);

 private:
  mutable std::mutex m_mutex;
  std::condition_variable m_added;
  std::deque<sim::REQUEST> m_requests;
  std::uint64_t m_last = 0;
};

}  // namespace support
