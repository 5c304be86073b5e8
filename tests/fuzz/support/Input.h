#pragma once

#include "vorn/base/QList.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vorn {

/// What libFuzzer calls once for each input, and the replay of the corpus too.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzz {

/// An input, taken from the front. What is missing reads as zero.
class INPUT {
 public:
  INPUT(const std::uint8_t* data, std::size_t size) : m_left(data, data + size) {}

  bool IsEmpty() const { return m_at == m_left.size(); }

  std::uint8_t Byte() { return IsEmpty() ? std::uint8_t{0} : m_left[m_at++]; }

  /// At most `count` bytes.
  std::string Text(std::size_t count) {
    const std::size_t length = std::min(count, m_left.size() - m_at);
    std::string text;
    for (std::size_t i = 0; i < length; ++i) {
      text += static_cast<char>(Byte());
    }
    return text;
  }

  std::string Rest() { return Text(m_left.size() - m_at); }

 private:
  std::vector<std::uint8_t> m_left;
  std::size_t m_at = 0;
};

inline std::string TextOf(const QList& message) {
  return {message.begin(), message.end()};
}

inline QList ListOf(std::string_view text) {
  return {text.begin(), text.end()};
}

/// What a client sent, as the daemon reads it: cut into reads at each zero byte, which no text
/// holds, and every 255 bytes.
inline std::vector<std::string> Reads(std::string_view text) {
  constexpr std::size_t kLongestRead = 255;
  std::vector<std::string> reads;
  while (!text.empty()) {
    const std::size_t length = std::min({text.find('\0'), text.size(), kLongestRead});
    reads.emplace_back(text.substr(0, length));
    text.remove_prefix(std::min(text.size(), length + (length < kLongestRead ? 1 : 0)));
  }
  return reads;
}

}  // namespace fuzz

}  // namespace vorn
