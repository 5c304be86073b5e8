#pragma once

#include <string>
#include <vector>

namespace vorn {

/// What the code under test has asked of the system log, in order: "5 text" for a message, with its
/// priority, and "close".
extern std::vector<std::string>
    systemLogCalls;  // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)

}  // namespace vorn
