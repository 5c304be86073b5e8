#pragma once

#include "client/Cards.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The lines of the IO interface: commands to cards, and input changes from them. Without
/// separators. Each maker throws BAD_VALUE for what the daemon would refuse or misread.
namespace client {

/// What a read of the daemon's takes, the separator's two characters left out: a longer line is
/// cut.
constexpr std::size_t kLongestIoLine = 253;
constexpr std::size_t kLongestLcdText = 31;
constexpr std::size_t kLongestIrStream = 23;

/// Sets block `block` (0 to 7) of a card; only output cards do something with it.
std::string BlockLine(int address, int block, std::uint8_t value);

enum class LCD_ACTION : std::uint8_t {
  kClear,
  kLightOn,
  kLightOff,
  kCursorOn,
  kCursorOff,
  kBlinkOn,
  kBlinkOff,
};
std::string LcdLine(int address, LCD_ACTION action);
/// Column and row are counted from 0, at most 255; at most 31 characters, none of them a zero byte,
/// a carriage return or a line feed.
std::string LcdTextLine(int address, int column, int row, std::string_view text);
/// 1 to 23 bytes.
std::string IrLine(int address, const std::vector<std::uint8_t>& bytes);
/// As typed: not empty, at most kLongestIoLine characters, none of them a zero byte, a carriage
/// return or a line feed.
std::string TypedIoLine(std::string_view line);
constexpr std::string_view kIoExit = "EXIT";

/// A block of a card; an input change where the card is one that the daemon polls.
struct BLOCK_VALUE {
  int address = 0;
  int block = 0;
  std::uint8_t value = 0;
};
/// "a3b0d40", exactly, with its digits in upper case; nothing for any other line.
std::optional<BLOCK_VALUE> ReadBlockLine(std::string_view line);

}  // namespace client
