#include "client/IoLine.h"

#include "client/BadValue.h"
#include "client/TypedLine.h"

#include <array>

namespace client {

namespace {

constexpr int kBlocks = 8;
constexpr int kLargestPlace = 255;  // column and row: two digits each

struct LCD_FORM {
  LCD_ACTION action;
  const char* code;
};

constexpr LCD_FORM kLcdForms[] = {
    {LCD_ACTION::kClear, "CL"},    {LCD_ACTION::kLightOn, "LO"},   {LCD_ACTION::kLightOff, "LF"},
    {LCD_ACTION::kCursorOn, "CO"}, {LCD_ACTION::kCursorOff, "CF"}, {LCD_ACTION::kBlinkOn, "BO"},
    {LCD_ACTION::kBlinkOff, "BF"},
};

/// "a" and the card's digit: how every command to a card begins.
std::string ToCard(int address) {
  return {'a', AddressDigit(address)};
}

std::string Place(const char* name, int place) {
  if (place < 0 || place > kLargestPlace) {
    throw BAD_VALUE(std::string(name) + " " + std::to_string(place) + ": 0 to 255");
  }
  return HexByte(static_cast<std::uint8_t>(place));
}

/// The value of an upper-case digit, as the daemon writes it; -1 for another character.
int WrittenDigit(char digit) {
  return digit >= 'a' ? -1 : ReadDigit(digit);
}

}  // namespace

std::string BlockLine(int address, int block, std::uint8_t value) {
  if (block < 0 || block >= kBlocks) {
    throw BAD_VALUE("block " + std::to_string(block) + ": a card has 0 to 7");
  }
  return ToCard(address) + "b" + std::to_string(block) + "d" + HexByte(value);
}

std::string LcdLine(int address, LCD_ACTION action) {
  for (const LCD_FORM& form : kLcdForms) {
    if (form.action == action) {
      return ToCard(address) + "l" + form.code;
    }
  }
  throw BAD_VALUE("no display does such a thing");
}

std::string LcdTextLine(int address, int column, int row, std::string_view text) {
  if (text.size() > kLongestLcdText) {
    throw BAD_VALUE("LCD text of " + std::to_string(text.size()) + " characters: at most 31");
  }
  CheckOneLine(text, kLongestLcdText);
  return ToCard(address) + "lPAp" + Place("column", column) + Place("row", row) + "t" +
         std::string(text);
}

std::string IrLine(int address, const std::vector<std::uint8_t>& bytes) {
  if (bytes.empty() || bytes.size() > kLongestIrStream) {
    throw BAD_VALUE("IR stream of " + std::to_string(bytes.size()) + " bytes: 1 to 23");
  }
  std::string line = ToCard(address) + "sHS";
  for (const std::uint8_t byte : bytes) {
    line += HexByte(byte);
  }
  return line;
}

std::string TypedIoLine(std::string_view line) {
  if (line.empty()) {
    throw BAD_VALUE("an empty line: vorn skips it");
  }
  CheckOneLine(line, kLongestIoLine);
  return std::string(line);
}

std::optional<BLOCK_VALUE> ReadBlockLine(std::string_view line) {
  constexpr std::string_view kShape = "aAbBdDD";  // an upper-case letter is a digit's place
  if (line.size() != kShape.size()) {
    return std::nullopt;
  }
  std::array<int, 4> digits{};
  std::size_t read = 0;
  for (std::size_t i = 0; i < kShape.size(); ++i) {
    if (kShape[i] >= 'a') {
      if (line[i] != kShape[i]) {
        return std::nullopt;
      }
      continue;
    }
    const int digit = WrittenDigit(line[i]);
    if (digit < 0) {
      return std::nullopt;
    }
    digits.at(read++) = digit;
  }
  return BLOCK_VALUE{digits[0], digits[1],
                     static_cast<std::uint8_t>(digits[2] * kAddresses + digits[3])};
}

}  // namespace client
