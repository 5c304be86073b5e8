#pragma once

#include "sim/rack/Bytes.h"
#include "sim/rack/Time.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <vector>

namespace sim {

/// One complete request frame as it came over the line.
struct REQUEST {
  std::uint64_t number = 0;  // 1 for the adapter's first; never repeated
  TIME when{};
  Bytes frame;  // length byte first

  Bytes Body() const { return frame.empty() ? Bytes{} : Bytes(frame.begin() + 1, frame.end()); }
};

/// The last kCapacity request frames, oldest first. Written by the adapter's thread, read and
/// waited for by any; its own lock guards all.
class REQUEST_LOG {
 public:
  static constexpr std::size_t kCapacity = 65536;
  using PREDICATE = std::function<bool(const REQUEST&)>;

  void Add(REQUEST entry);

  /// Number of the last request, 0 when there was none: "from here on" for WaitForRequest.
  std::uint64_t Last() const;

  /// All that are still held and have a number above after.
  std::vector<REQUEST> Since(std::uint64_t after = 0) const;

  /// The first request with a number above after that fulfils the predicate, waiting for it until
  /// the limit. The predicate runs under the log's lock and must not call the log.
  std::optional<REQUEST> WaitForRequest(const PREDICATE& predicate, std::chrono::milliseconds limit,
                                        std::uint64_t after = 0);

  /// The same for a frame's exact bytes, length byte included.
  std::optional<REQUEST> WaitForFrame(const Bytes& frame, std::chrono::milliseconds limit,
                                      std::uint64_t after = 0);

 private:
  mutable std::mutex m_mutex;
  std::condition_variable m_added;
  std::deque<REQUEST> m_requests;
  std::uint64_t m_last = 0;
};

}  // namespace sim
