#pragma once

#include "vorn/base/QList.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vorn {

namespace unit {

using BYTES = std::vector<std::uint8_t>;

/// "03 40 6F 9A" as bytes. Blanks separate; anything but pairs of hex digits is an error of the
/// test.
BYTES Hex(std::string_view text);

/// The same as a byte list.
QList HexList(std::string_view text);

/// Bytes as "03 40 6F 9A"; what a failing comparison shows.
std::string ToHex(const BYTES& bytes);
std::string ToHex(const QList& bytes);

BYTES operator+(BYTES left, const BYTES& right);

/// A body behind its length byte.
BYTES Frame(const BYTES& body);

}  // namespace unit

}  // namespace vorn
