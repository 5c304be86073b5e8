#include "vorn/base/Values.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace vorn {

namespace {

constexpr std::int32_t kMin = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t kMax = std::numeric_limits<std::int32_t>::max();

}  // namespace

std::int32_t ATOL(const std::string& text) {
  const long long value = std::strtoll(text.c_str(), nullptr, 10);
  return static_cast<std::int32_t>(std::clamp<long long>(value, kMin, kMax));
}

bool ATOB(const std::string& text) {
  return text == "True" || text == "true" || text == "TRUE";
}

std::string ITOA(std::int32_t value) {
  return std::to_string(value);
}

std::string BTOA(bool value) {
  return value ? "TRUE" : "FALSE";
}

std::int32_t SpeedToDelayUs(std::int32_t percent) {
  // Single precision throughout; 4999 rather than 5000 leaves a floor of 1 µs at 100 %.
  const float delay = (static_cast<float>(percent) * -4999.0F + 500000.0F) / 99.0F;
  if (delay >= static_cast<float>(kMax)) {
    return kMax;
  }
  if (delay <= static_cast<float>(kMin)) {
    return kMin;
  }
  return static_cast<std::int32_t>(delay);
}

}  // namespace vorn
