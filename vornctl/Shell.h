#pragma once

#include "vornctl/commands/Command.h"

namespace ctl {

/// The prompt: commands one after the other on one connection, with history and completion; changes
/// of inputs appear above it. Ctrl-C ends a command, Ctrl-D or "exit" the prompt. Without a
/// terminal it is a batch that keeps going. Answers with the status of the last command.
EXIT_STATUS RunShell(CONTEXT& context);

}  // namespace ctl
