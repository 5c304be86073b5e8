#include "tests/support/unit/Bytes.h"

#include <charconv>
#include <cstddef>
#include <stdexcept>

namespace vorn {

namespace unit {

namespace {

template <class BYTE_RANGE>
std::string ToHexText(const BYTE_RANGE& bytes) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string text;
  for (const auto byte : bytes) {
    const auto value = static_cast<std::uint8_t>(byte);
    text += text.empty() ? "" : " ";
    text += kDigits[value / 16];
    text += kDigits[value % 16];
  }
  return text;
}

}  // namespace

BYTES Hex(std::string_view text) {
  BYTES bytes;
  for (std::size_t at = 0; at < text.size();) {
    if (text[at] == ' ') {
      ++at;
      continue;
    }
    const std::string_view digits = text.substr(at, 2);
    std::uint8_t value = 0;
    const auto parsed = std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
    if (digits.size() != 2 || parsed.ptr != digits.data() + 2) {
      throw std::invalid_argument("not hex: " + std::string(text));
    }
    bytes.push_back(value);
    at += 2;
  }
  return bytes;
}

QList HexList(std::string_view text) {
  const BYTES bytes = Hex(text);
  return {bytes.begin(), bytes.end()};
}

std::string ToHex(const BYTES& bytes) {
  return ToHexText(bytes);
}

std::string ToHex(const QList& bytes) {
  return ToHexText(bytes);
}

BYTES operator+(BYTES left, const BYTES& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

BYTES Frame(const BYTES& body) {
  return BYTES{static_cast<std::uint8_t>(body.size())} + body;
}

}  // namespace unit

}  // namespace vorn
