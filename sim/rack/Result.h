#pragma once

#include <string>
#include <utility>

namespace sim {

/// What an operation asked for by a person came to: good, or an error text that says what was wrong
/// and what would be right (no final full stop, no line end).
struct [[nodiscard]] RESULT {
  bool ok = true;
  std::string text;  // of an error; of a good result what it has to say, often nothing

  static RESULT Good(std::string said = {}) { return {true, std::move(said)}; }
  static RESULT Error(std::string why) { return {false, std::move(why)}; }
  explicit operator bool() const { return ok; }
};

}  // namespace sim
