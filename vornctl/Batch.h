#pragma once

#include "vornctl/commands/Command.h"

#include <string>

namespace ctl {

/// Carries out the commands of a file, or of the standard input for "" and "-": one a line, on one
/// connection. IO lines follow each other without a wait; what became of them is known at the next
/// command of another kind, where no line is there to be read, and at the end. Ends with the first
/// that fails, unless it is to keep going: the status of the first is the program's. Throws FAILURE
/// where the file cannot be read.
EXIT_STATUS RunBatch(CONTEXT& context, const std::string& file, bool keepGoing);

}  // namespace ctl
