#pragma once

#include "sim/rack/Bytes.h"

#include <chrono>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

/// Thrown by the readers below and caught where a command line is executed; never leaves tool/.
class ARGUMENT_ERROR : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The words of a command line: separated by blanks, a word with blanks in "double quotes". Throws
/// ARGUMENT_ERROR when a quote is not closed.
std::vector<std::string> SplitWords(std::string_view line);

/// Where a command does something: "3.6".
struct PLACE_ARGUMENT {
  int address;
  std::string channel;
};

/// "0" to "F".
int ReadAddress(const std::string& word);
/// An address, a point, and what is behind it.
PLACE_ARGUMENT ReadPlace(const std::string& word);
/// A decimal number, a sign allowed.
int ReadNumber(const std::string& word, const char* what);
/// One or two hexadecimal digits.
int ReadHexByte(const std::string& word, const char* what);
/// A card type's keyword, or a type code of two hexadecimal digits that is not 00.
std::uint8_t ReadCardType(const std::string& word);
/// Pairs of hexadecimal digits; at least one.
Bytes ReadHexBytes(const std::string& word);
/// Seconds, a fraction allowed; 0 to 1000000.
std::chrono::milliseconds ReadSeconds(const std::string& word);
/// Milliseconds, a fraction allowed; 0 to 1000000.
std::chrono::microseconds ReadMilliseconds(const std::string& word);

}  // namespace sim
