#pragma once

#include "sim/rack/Result.h"
#include "sim/tool/Simulation.h"

#include <string>
#include <vector>

namespace sim {

/// One command of an operator, typed, scripted or sent over the control socket.
struct COMMAND {
  const char* word;
  const char* arguments;
  const char* help;
  std::size_t fewest;  // arguments
  std::size_t most;
  RESULT (*run)(SIMULATION& simulation, const std::vector<std::string>& arguments);
};

/// All commands, in the order of the help.
const std::vector<COMMAND>& Commands();

/// The row of a word; null for none.
const COMMAND* FindCommand(const std::string& word);

/// Runs one line; an empty one, or one that begins with '#', is good and does nothing. The text of
/// a good result is what the command has to say, of several lines where it needs them.
RESULT Execute(SIMULATION& simulation, const std::string& line);

/// Only what can be checked before running: the words, the command, the number of its arguments.
RESULT Check(const std::string& line);

/// What a client of the command line or of the control socket gets for a result: the text's lines,
/// then "OK", or one line "error: why". Ends with a line end.
std::string ResponseText(const RESULT& result);

}  // namespace sim
