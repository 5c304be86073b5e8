#pragma once

#include "sim/tool/Commands.h"

#include <string>
#include <vector>

namespace sim {

/// A line for each command, as its row has it.
std::string HelpText();

/// The command's line, and what there is to know of the placeholders in its arguments.
std::string HelpText(const COMMAND& command);

/// The words that may come next on a command line: commands first, then what the command's row
/// names: words in lower case as they stand, and what may stand for a placeholder.
std::vector<std::string> Complete(const std::string& before);

}  // namespace sim
