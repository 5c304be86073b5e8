#include "vornctl/commands/Commands.h"

#include <CLI/CLI.hpp>

// batch and completion: their arguments; the program itself carries them out.
namespace ctl {

void DeclareBatch(CLI::App& command, ARGUMENTS& arguments) {
  command.add_option("FILE", arguments.words, "FILE; the standard input where none is named")
      ->expected(0, 1);
  command.add_flag("--keep-going", arguments.keepGoing, "go on behind a command that fails");
}

void DeclareCompletion(CLI::App& command, ARGUMENTS& arguments) {
  command.add_option("SHELL", arguments.words, "bash or zsh")
      ->required()
      ->expected(1)
      ->check(CLI::IsMember({"bash", "zsh", "names"}).description(""));
}

}  // namespace ctl
