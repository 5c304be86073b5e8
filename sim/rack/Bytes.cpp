#include "sim/rack/Bytes.h"

namespace sim {

namespace {

int DigitValue(char c) {
  if (c >= '0' && c <= '9') {
    return c - '0';
  }
  if (c >= 'A' && c <= 'F') {
    return c - 'A' + 10;
  }
  if (c >= 'a' && c <= 'f') {
    return c - 'a' + 10;
  }
  return -1;
}

}  // namespace

std::string ToHex(std::uint8_t byte) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  return {kDigits[byte >> 4], kDigits[byte & 0x0F]};
}

std::string ToHex(const Bytes& bytes) {
  std::string text;
  text.reserve(bytes.size() * 3);
  for (std::uint8_t byte : bytes) {
    if (!text.empty()) {
      text += ' ';
    }
    text += ToHex(byte);
  }
  return text;
}

std::optional<Bytes> FromHex(std::string_view text) {
  Bytes bytes;
  std::size_t i = 0;
  while (i < text.size()) {
    if (text[i] == ' ') {
      ++i;
      continue;
    }
    if (i + 1 >= text.size()) {
      return std::nullopt;
    }
    const int high = DigitValue(text[i]);
    const int low = DigitValue(text[i + 1]);
    if (high < 0 || low < 0) {
      return std::nullopt;
    }
    bytes.push_back(static_cast<std::uint8_t>(high * 16 + low));
    i += 2;
  }
  return bytes;
}

Bytes Frame(const Bytes& body) {
  Bytes frame;
  frame.reserve(body.size() + 1);
  frame.push_back(static_cast<std::uint8_t>(body.size()));
  frame.insert(frame.end(), body.begin(), body.end());
  return frame;
}

}  // namespace sim
