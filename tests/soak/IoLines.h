#pragma once

#include <string>

namespace soak {

/// A command that is refused.
constexpr const char* kNonsense = "nonsense";

/// What the machine sends beside its floods, and what it receives.
bool IsIoLine(const std::string& line);

}  // namespace soak
