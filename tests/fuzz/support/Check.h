#pragma once

#include <string>
#include <string_view>

namespace vorn {

namespace fuzz {

/// Ends the process as a crash does, after telling what did not hold and what was seen: the way
/// in which an oracle of a fuzz target says no.
[[noreturn]] void Fail(std::string_view what, std::string_view seen);

/// What must hold for every input.
inline void Require(bool holds, std::string_view what, std::string_view seen = {}) {
  if (!holds) {
    Fail(what, seen);
  }
}

/// Bytes as C shows them: printable ones as they are, the others as \xHH.
std::string Shown(std::string_view bytes);

}  // namespace fuzz

}  // namespace vorn
