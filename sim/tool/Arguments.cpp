#include "sim/tool/Arguments.h"

#include "sim/rack/Protocol.h"

#include <charconv>
#include <cmath>
#include <cstdlib>

namespace sim {

namespace {

double ReadPositive(const std::string& word, const char* what) {
  constexpr double kMost = 1e6;
  double value = 0;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
  if (error != std::errc() || end != word.data() + word.size() || !std::isfinite(value) ||
      value < 0 || value > kMost) {
    throw ARGUMENT_ERROR("'" + word + "' is no " + what + " (0 to 1000000, a fraction allowed)");
  }
  return value;
}

}  // namespace

std::vector<std::string> SplitWords(std::string_view line) {
  constexpr std::string_view kBlanks = " \t\r";
  std::vector<std::string> words;
  std::size_t at = 0;
  while ((at = line.find_first_not_of(kBlanks, at)) != std::string_view::npos) {
    if (line[at] == '"') {
      const std::size_t end = line.find('"', at + 1);
      if (end == std::string_view::npos) {
        throw ARGUMENT_ERROR("a \" is not closed");
      }
      words.emplace_back(line.substr(at + 1, end - at - 1));
      at = end + 1;
      continue;
    }
    const std::size_t end = std::min(line.find_first_of(kBlanks, at), line.size());
    words.emplace_back(line.substr(at, end - at));
    at = end;
  }
  return words;
}

int ReadAddress(const std::string& word) {
  const std::optional<Bytes> value = word.size() == 1 ? FromHex("0" + word) : std::nullopt;
  if (!value) {
    throw ARGUMENT_ERROR("'" + word + "' is no card address (0 to F)");
  }
  return value->front();
}

PLACE_ARGUMENT ReadPlace(const std::string& word) {
  const std::size_t point = word.find('.');
  if (point == std::string::npos || point + 1 == word.size()) {
    throw ARGUMENT_ERROR("'" + word + "' is no place (card address, a point, channel: 3.6)");
  }
  return {ReadAddress(word.substr(0, point)), word.substr(point + 1)};
}

int ReadNumber(const std::string& word, const char* what) {
  int value = 0;
  const char* begin = word.data() + (word.size() > 1 && word[0] == '+' ? 1 : 0);
  const auto [end, error] = std::from_chars(begin, word.data() + word.size(), value);
  if (error != std::errc() || end != word.data() + word.size()) {
    throw ARGUMENT_ERROR("'" + word + "' is no " + what + " (a decimal number)");
  }
  return value;
}

int ReadHexByte(const std::string& word, const char* what) {
  const std::optional<Bytes> value = FromHex(word.size() == 1 ? "0" + word : word);
  if (!value || value->size() != 1) {
    throw ARGUMENT_ERROR("'" + word + "' is no " + what + " (00 to FF)");
  }
  return value->front();
}

std::uint8_t ReadCardType(const std::string& word) {
  if (const CARD_TYPE* row = FindRow(kCardTypes, word)) {
    return row->code;
  }
  const std::optional<Bytes> code = FromHex(word);
  if (code && code->size() == 1 && code->front() != type::kEmpty) {
    return code->front();
  }
  std::string known;
  for (const CARD_TYPE& row : kCardTypes) {
    known += std::string(row.keyword) + ", ";
  }
  throw ARGUMENT_ERROR("'" + word + "' is no card type (" + known + "or a type code 01 to FF)");
}

Bytes ReadHexBytes(const std::string& word) {
  const std::optional<Bytes> value = FromHex(word);
  if (!value || value->empty()) {
    throw ARGUMENT_ERROR("'" + word + "' are no bytes (pairs of hexadecimal digits: 03409A)");
  }
  return *value;
}

std::chrono::milliseconds ReadSeconds(const std::string& word) {
  return std::chrono::milliseconds(std::llround(ReadPositive(word, "number of seconds") * 1000));
}

std::chrono::microseconds ReadMilliseconds(const std::string& word) {
  return std::chrono::microseconds(
      std::llround(ReadPositive(word, "number of milliseconds") * 1000));
}

}  // namespace sim
