#include "sim/line/FrameReader.h"

#include <utility>

namespace sim {

std::vector<Bytes> FRAME_READER::Feed(const std::uint8_t* bytes, std::size_t count) {
  m_partial.insert(m_partial.end(), bytes, bytes + count);
  std::vector<Bytes> frames;
  auto begin = m_partial.begin();
  while (begin != m_partial.end() && m_partial.end() - begin > *begin) {
    const auto end = begin + *begin + 1;
    frames.emplace_back(begin, end);
    begin = end;
  }
  m_partial.erase(m_partial.begin(), begin);
  return frames;
}

Bytes FRAME_READER::Drop() {
  return std::exchange(m_partial, {});
}

}  // namespace sim
