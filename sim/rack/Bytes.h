#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

/// Bytes of the line or of a frame, in the order in which they travel.
using Bytes = std::vector<std::uint8_t>;

/// "10 05 02 FF FB": two upper-case digits a byte, one blank between.
std::string ToHex(const Bytes& bytes);

/// One byte as two upper-case digits.
std::string ToHex(std::uint8_t byte);

/// The inverse of ToHex: pairs of hexadecimal digits of either case, blanks allowed between pairs.
/// Nothing when the text holds anything else or half a pair.
std::optional<Bytes> FromHex(std::string_view text);

/// The frame of a body: its length byte in front of it. A body of more than 255 bytes has no frame;
/// its length byte is cut to 8 bits, as the line would cut it.
Bytes Frame(const Bytes& body);

}  // namespace sim
