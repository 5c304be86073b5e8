#include "client/Cards.h"

#include "client/BadValue.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace client {

namespace {

constexpr double kLargestByte = 255.0;
constexpr int kLargestSpeed = 127;  // of a signed byte; -128 is not used
constexpr double kFull = 100.0;     // percent

std::uint8_t BitOf(VALUE_FORM form, int bit) {
  if (form != VALUE_FORM::kActiveLow && form != VALUE_FORM::kActiveHigh) {
    throw BAD_VALUE("these values are not on or off");
  }
  if (bit < 0 || bit >= kOutputsOfABlock) {
    throw BAD_VALUE("bit " + std::to_string(bit) + ": a block has 0 to 7");
  }
  return static_cast<std::uint8_t>(1U << static_cast<unsigned int>(bit));
}

[[noreturn]] void RefuseForm() {
  throw BAD_VALUE("these values are no percentages");
}

}  // namespace

const CARD_TYPE& TypeOf(CARD_KIND kind) {
  for (const CARD_TYPE& type : kCardTypes) {
    if (type.kind == kind) {
      return type;
    }
  }
  return TypeOf(CARD_KIND::kUnidentified);
}

const CARD_TYPE* FindTypeByWord(std::string_view word) {
  for (const CARD_TYPE& type : kCardTypes) {
    if (type.word == word) {
      return &type;
    }
  }
  return nullptr;
}

const CARD_TYPE* FindTypeByListedName(std::string_view listedName) {
  for (const CARD_TYPE& type : kCardTypes) {
    if (type.listedName == listedName) {
      return &type;
    }
  }
  return nullptr;
}

const CARD_PARAMETER& RowOf(PARAMETER parameter) {
  for (const CARD_PARAMETER& row : kCardParameters) {
    if (row.parameter == parameter) {
      return row;
    }
  }
  throw BAD_VALUE("no card has such a parameter");
}

char AddressDigit(int address) {
  if (address < 0 || address >= kAddresses) {
    throw BAD_VALUE("address " + std::to_string(address) + ": a card has 0 to F");
  }
  return "0123456789ABCDEF"[address];
}

int ReadDigit(char digit) {
  if (digit >= '0' && digit <= '9') {
    return digit - '0';
  }
  if (digit >= 'A' && digit <= 'F') {
    return digit - 'A' + 10;
  }
  if (digit >= 'a' && digit <= 'f') {
    return digit - 'a' + 10;
  }
  return -1;
}

std::string HexByte(std::uint8_t value) {
  return {AddressDigit(value / kAddresses), AddressDigit(value % kAddresses)};
}

double PercentOf(VALUE_FORM form, std::uint8_t raw) {
  if (form == VALUE_FORM::kPosition) {
    return raw * kFull / kLargestByte;
  }
  if (form == VALUE_FORM::kSpeed) {
    const int speed = raw > kLargestSpeed ? raw - 256 : raw;
    return std::max(speed, -kLargestSpeed) * kFull / kLargestSpeed;
  }
  RefuseForm();
}

std::uint8_t RawOf(VALUE_FORM form, double percent) {
  if (form != VALUE_FORM::kPosition && form != VALUE_FORM::kSpeed) {
    RefuseForm();
  }
  const bool isSpeed = form == VALUE_FORM::kSpeed;
  const double least = isSpeed ? -kFull : 0.0;
  const bool isInside = percent >= least && percent <= kFull;  // what is no number is not
  if (!isInside) {
    char number[32];
    std::snprintf(number, sizeof number, "%g", percent);
    throw BAD_VALUE(std::string(number) + " %: " + (isSpeed ? "-100" : "0") + " to 100 %");
  }
  const double largest = isSpeed ? kLargestSpeed : kLargestByte;
  return static_cast<std::uint8_t>(std::lround(percent * largest / kFull));
}

bool IsOn(VALUE_FORM form, std::uint8_t block, int bit) {
  const bool isOne = (block & BitOf(form, bit)) != 0;
  return isOne == (form == VALUE_FORM::kActiveHigh);
}

std::uint8_t WithBit(VALUE_FORM form, std::uint8_t block, int bit, bool on) {
  const std::uint8_t mask = BitOf(form, bit);
  const bool isOne = on == (form == VALUE_FORM::kActiveHigh);
  return static_cast<std::uint8_t>(isOne ? block | mask : block & ~mask);
}

}  // namespace client
