#include "tests/fuzz/support/Check.h"

#include <array>
#include <cstdio>
#include <cstdlib>

namespace vorn {

namespace fuzz {

void Fail(std::string_view what, std::string_view seen) {
  std::fprintf(stderr, "does not hold: %s\n", std::string(what).c_str());
  if (!seen.empty()) {
    std::fprintf(stderr, "  seen: %s\n", Shown(seen).c_str());
  }
  std::abort();
}

std::string Shown(std::string_view bytes) {
  std::string text;
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    if (value >= 0x20 && value < 0x7F && byte != '\\') {
      text += byte;
      continue;
    }
    std::array<char, 8> escape{};
    std::snprintf(escape.data(), escape.size(), "\\x%02X", value);
    text += escape.data();
  }
  return text;
}

}  // namespace fuzz

}  // namespace vorn
