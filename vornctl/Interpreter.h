#pragma once

#include "vornctl/commands/Command.h"

#include <memory>
#include <string>
#include <vector>

namespace CLI {    // NOLINT(readability-identifier-naming): the parser's own name
class ParseError;  // NOLINT(readability-identifier-naming)
}

namespace ctl {

/// Reads the words of a command and carries it out: the lines of a batch and of the prompt. The
/// command line itself is read by the same parser with the program's options added.
class INTERPRETER {
 public:
  /// Commands of this use and those that are of use everywhere.
  INTERPRETER(CONTEXT& context, USE use);
  ~INTERPRETER();
  INTERPRETER(const INTERPRETER&) = delete;
  INTERPRETER& operator=(const INTERPRETER&) = delete;

  /// Carries the command out; one word at least. Throws FAILURE.
  void Run(const std::vector<std::string>& words);

 private:
  CONTEXT& m_context;
  ARGUMENTS m_arguments;
  std::unique_ptr<CLI::App> m_app;
};

/// Adds the commands of that use to a parser; what they find goes into `arguments`.
void AddCommands(CLI::App& app, ARGUMENTS& arguments, USE use);
/// Reads the words of a command line, the first not being the program's name. Throws as the parser
/// does.
void Parse(CLI::App& app, ARGUMENTS& arguments, const std::vector<std::string>& words);
/// The complaint of a parser, to which the commands were added, on one line. Where words are
/// missing or too many it is what should stand there.
std::string ExplainParseError(const CLI::ParseError& error, const CLI::App& app);

}  // namespace ctl
