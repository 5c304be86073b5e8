#pragma once

#include <string>
#include <vector>

namespace ctl {

/// The whole program; what it ends with. Standard input, output and error, the environment and the
/// settings files are those of the process.
int RunProgram(int argc, char** argv);

/// The options that may stand before or behind any command: "--host", "--json", ...
std::vector<std::string> ProgramOptions();

}  // namespace ctl
