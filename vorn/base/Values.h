#pragma once

#include <cstdint>
#include <string>

namespace vorn {

/// The leading decimal number of a text: white space and a sign are accepted, the conversion stops
/// at the first non-digit, 0 when there is no number. Saturates at the limits of 32 bits, on every
/// machine.
std::int32_t ATOL(const std::string& text);

/// True exactly for "True", "true" and "TRUE".
bool ATOB(const std::string& text);

/// Decimal text, with '-' for negatives and no leading zeros.
std::string ITOA(std::int32_t value);

/// "TRUE" or "FALSE".
std::string BTOA(bool value);

/// The thread delay in force until a `Speed` element says otherwise: that of 1 %.
constexpr std::int32_t kDefaultThreadDelayUs = 5000;

/// The pause of a loop's pass, in microseconds, for a working speed in percent: 5000 at 1, 2525 at
/// 50, 51 at 99, 1 at 100. Not range-checked: 0 gives 5050, above 100 it is negative (no pause); it
/// saturates at the limits of 32 bits.
std::int32_t SpeedToDelayUs(std::int32_t percent);

}  // namespace vorn
