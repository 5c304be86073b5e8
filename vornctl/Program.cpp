#include "vornctl/Program.h"

#include "vornctl/Batch.h"
#include "vornctl/Completion.h"
#include "vornctl/Interpreter.h"
#include "vornctl/Shell.h"
#include "vornctl/commands/Commands.h"

#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>

namespace ctl {

namespace {

using client::INTERFACE;

constexpr const char* kAbout =
    "vornctl: cards, inputs and outputs of a vorn daemon, from the command line";
constexpr const char* kFooter =
    "WHAT is 5 (a card), 5.10 (a channel), 5.b1 (a block), 8.key, 8.encoder, or a name from the "
    "settings.\n"
    "VALUE is on, off, 50%, 0x80, or two hexadecimal digits for a block.\n"
    "Status: 0 done, 1 refused by vorn or a card, 2 wrong use or value, 3 time-out, 4 the "
    "interface is taken,\n"
    "8 vorn is not reached, 10 no such card, channel or name. See vornctl(1).";

struct PROGRAM_OPTIONS {
  SETTINGS_OPTIONS settings;
  OUTPUT::OPTIONS output;
  bool dryRun = false;
  bool unchecked = false;
};

void AddPort(CLI::App& app, PROGRAM_OPTIONS& options, const char* name, INTERFACE interface) {
  constexpr int kLargestPort = 65535;
  app.add_option_function<std::string>(
         name,
         [&options, interface](const std::string& text) {
           const int port = ReadDecimal(text).value_or(0);
           if (port < 1 || port > kLargestPort) {
             throw CLI::ValidationError(std::string("port of ") + client::NameOf(interface),
                                        "'" + text + "' is no port, 1 to 65535");
           }
           options.settings.ports[interface] = port;
         },
         std::string("port of ") + client::NameOf(interface))
      ->type_name("PORT");
}

void AddOptions(CLI::App& app, PROGRAM_OPTIONS& options) {
  app.add_option("--host", options.settings.host,
                 "where vorn runs; with :PORT that of CAE, the others behind it")
      ->type_name("HOST");
  AddPort(app, options, "--cae-port", INTERFACE::kCae);
  AddPort(app, options, "--io-port", INTERFACE::kIo);
  AddPort(app, options, "--mon-port", INTERFACE::kMon);
  app.add_option("--settings", options.settings.file, "settings file in place of the usual ones")
      ->type_name("FILE");
  app.add_option("--timeout", options.settings.timeout, "seconds that an answer may take (10)")
      ->type_name("S");
  app.add_option("--wait", options.settings.wait,
                 "seconds to wait for an interface that is taken or closed (9: its own pauses)")
      ->type_name("S");
  app.add_flag("--json", options.output.json, "one object a line");
  app.add_flag("--quiet", options.output.quiet, "no notes and no progress");
  app.add_flag("--dry-run", options.dryRun, "show the lines that would be sent");
  app.add_flag("--unchecked", options.unchecked,
               "send without a look whether vorn took it; leaves CAE and MON to others");
}

/// What is wrong with the command line. A word that is no command is better named than what the
/// parser makes of it.
std::string Explain(const CLI::ParseError& error, const CLI::App& app) {
  const std::vector<std::string> left = app.remaining();
  if (app.get_subcommands().empty() && !left.empty() && !left.front().starts_with('-')) {
    return "no command '" + left.front() + "'";
  }
  return ExplainParseError(error, app);
}

int RunCompletion(const std::string& what, const SETTINGS& settings, OUTPUT& output) {
  std::string text;
  if (what == "bash") {
    text = BashCompletion();
  } else if (what == "zsh") {
    text = ZshCompletion();
  } else {
    for (const auto& [name, place] : settings.names) {
      text += name + "\n";
    }
  }
  if (!text.empty()) {
    text.pop_back();
    output.PutText(text);
  }
  return 0;
}

EXIT_STATUS RunCommand(CONTEXT& context, const std::string& name, const ARGUMENTS& arguments) {
  context.isLong = name == "shell" || name == "batch";
  if (name == "shell") {
    return RunShell(context);
  }
  if (name == "batch") {
    return RunBatch(context, arguments.words.empty() ? "" : arguments.words.front(),
                    arguments.keepGoing);
  }
  FindCommand(name)->run(context, arguments);
  return EXIT_STATUS::kDone;
}

int RunWith(const PROGRAM_OPTIONS& options, const std::string& name, const ARGUMENTS& arguments,
            OUTPUT& output) {
  const SETTINGS settings = ReadSettings(options.settings);
  if (name == "completion") {
    return RunCompletion(arguments.words.front(), settings, output);
  }
  LINK link(settings, output);
  CONTEXT context{output, link, options.dryRun, options.unchecked, false, {}, {}, {}};
  link.OnRefused([&](client::DELIVERY::NUMBER number, const std::string& line) {
    if (number != 0) {
      context.refused.emplace_back(number, line);
    }
  });
  link.OnIoLost([&] { context.blocks.clear(); });
  try {
    const EXIT_STATUS status = RunCommand(context, name, arguments);
    link.LeaveAll();
    output.Check();
    return static_cast<int>(status);
  } catch (const FAILURE& failure) {
    // What was sent before arrives all the same.
    output.Fail(failure);
    link.LeaveAll();
    return static_cast<int>(failure.Status());
  }
}

}  // namespace

std::vector<std::string> ProgramOptions() {
  CLI::App app;
  PROGRAM_OPTIONS options;
  AddOptions(app, options);
  std::vector<std::string> names;
  for (const CLI::Option* option : app.get_options()) {
    names.push_back("--" + option->get_lnames().front());
  }
  names.emplace_back("--version");
  return names;
}

int RunProgram(int argc, char** argv) {
  // A reader that goes away is told by the write that fails.
  signal(SIGPIPE, SIG_IGN);
  PROGRAM_OPTIONS options;
  ARGUMENTS arguments;
  CLI::App app(kAbout, "vornctl");
  app.set_version_flag("--version", "vornctl " VORN_VERSION);
  app.footer(kFooter);
  app.require_subcommand(0, 1);
  app.fallthrough();
  AddOptions(app, options);
  AddCommands(app, arguments, USE::kAlone);
  app.get_subcommand("batch")->alias("run");

  try {
    Parse(app, arguments, {argv + 1, argv + argc});
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) {
      return app.exit(error);  // help, or the version
    }
    const FAILURE failure(EXIT_STATUS::kUsage,
                          Explain(error, app) + " ('vornctl --help' explains)");
    OUTPUT(options.output).Fail(failure);
    return static_cast<int>(failure.Status());
  }
  OUTPUT output(options.output);
  try {
    const std::vector<CLI::App*> chosen = app.get_subcommands();
    if (chosen.empty() && isatty(STDIN_FILENO) == 0) {
      throw FAILURE(EXIT_STATUS::kUsage, "no command ('vornctl --help' explains)");
    }
    return RunWith(options, chosen.empty() ? "shell" : chosen.front()->get_name(), arguments,
                   output);
  } catch (const FAILURE& failure) {
    output.Fail(failure);
    return static_cast<int>(failure.Status());
  } catch (const INTERRUPTED& interrupted) {
    constexpr int kBySignal = 128;  // as a shell has it
    return kBySignal + interrupted.signal;
  }
}

}  // namespace ctl
