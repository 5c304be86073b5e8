#pragma once

#include "sim/rack/Bytes.h"

#include <cstdint>
#include <vector>

namespace sim {

/// Cuts the bytes of the line into frames. Any thread, one at a time.
class FRAME_READER {
 public:
  /// Takes bytes as they came; answers the frames that are now complete, length byte included. A
  /// length byte of 0 is a frame of that one byte.
  std::vector<Bytes> Feed(const std::uint8_t* bytes, std::size_t count);

  /// Bytes of a frame that is not complete yet.
  std::size_t Waiting() const { return m_partial.size(); }
  /// Forgets them and says what they were.
  Bytes Drop();

 private:
  Bytes m_partial;
};

}  // namespace sim
