#include "checkconf/Quoting.h"

#include <array>
#include <cstdio>

namespace vorn::checkconf {

namespace {

constexpr std::size_t kLongest = 60;

/// A control character, of C0, DEL, or C1 as UTF-8 has it ("\xC2" and 80 to 9F).
bool IsControl(std::string_view text, std::size_t at) {
  const auto c = static_cast<unsigned char>(text[at]);
  return c < 0x20 || c == 0x7F ||
         (c == 0xC2 && at + 1 < text.size() && static_cast<unsigned char>(text[at + 1]) < 0xA0);
}

std::string Escape(char c) {
  switch (c) {
    case '\r':
      return "\\r";
    case '\n':
      return "\\n";
    default: {
      std::array<char, 8> buffer{};
      std::snprintf(buffer.data(), buffer.size(), "\\x%02X", static_cast<unsigned char>(c));
      return buffer.data();
    }
  }
}

/// Where to cut so that no character of UTF-8 is cut in its middle.
std::size_t CutAt(std::string_view text) {
  std::size_t end = kLongest;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U) {
    --end;
  }
  return end;
}

}  // namespace

std::string Shown(std::string_view text) {
  const bool cut = text.size() > kLongest;
  if (cut) {
    text = text.substr(0, CutAt(text));
  }
  std::string shown;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (!IsControl(text, at)) {
      shown += text[at];
      continue;
    }
    shown += Escape(text[at]);
    if (static_cast<unsigned char>(text[at]) == 0xC2) {
      shown += Escape(text[++at]);
    }
  }
  return cut ? shown + "..." : shown;
}

std::string Quoted(std::string_view text) {
  return '"' + Shown(text) + '"';
}

}  // namespace vorn::checkconf
