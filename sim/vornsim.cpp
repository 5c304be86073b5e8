// vornsim: a rack of cards behind a serial adapter, both simulated.
//
// Standard output, one line for each thing that happens, written at once:
//
//   adapter /dev/ttyUSB0 ready          the link is there; also: opened, closed, unplugged
//   card 5 block 1 = FB                 digital output, motor: a data byte changed
//   card 1 motor 0 at 63%               motor: turns (negative: backward)
//   card 0 servo 4 = 80                 servo: has a new target; then: card 0 servo 4 reached 80
//   card E text 3,1 'Tail of the cat'   display; also: clear, light on, light off, cursor on, ...
//   card 9 sent 43 4F 43 4B             infrared stream
//   card 3 input block 0 = 40           digital input
//   card F pot 3 = 20                   analogue; after a ramp: card F pot 3 reached 20
//   card 8 key 12 pressed               key matrix; also: released, and: card 8 encoder at 5
//   card 0 endA3 = 40                   a parameter was written over the bus
//   card 0 positions stored             also: mask stored, silent ranges stored,
//                                       moves to stored positions, rebooted
//   card 3 plugged in: digital-in       also: card 3 pulled
//   fault cut 3 hit 03 20 05 02         a fault met that request frame
//
// Standard input, one command a line: help lists them. Each is answered, after the lines of what it
// did, by the lines of what it has to say and then "OK", or by one line "error: why".

#include "sim/tool/Control.h"
#include "sim/tool/Program.h"
#include "sim/tool/RackFile.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr int kUsageError = 2;

constexpr char kFooter[] =
    "Commands come on the standard input and over the control socket; 'help' lists them. "
    "Example:\n  vornsim --dev-dir /tmp --control /tmp/rack &\n"
    "  vornsim ctl --control /tmp/rack press 3.6";

constexpr char kControlFooter[] =
    "The rack takes COMMAND as if it were typed there; 'vornsim ctl help' lists the commands. "
    "Example:\n  vornsim ctl --control /tmp/rack press 3.6\n"
    "Status: 0 OK, 1 the command was refused, 2 nobody answers or the command line is wrong.";

/// All behind ctl's own options goes to the rack as it is, so the parser knows no argument to tell
/// of.
class CONTROL_HELP : public CLI::Formatter {
 public:
  std::string make_usage(const CLI::App* /*app*/, std::string name) const override {
    return "Usage: " + name + " [OPTIONS] COMMAND [ARGUMENT]...\n";
  }
};

int FailUsage(const std::string& why, const std::string& program) {
  std::fprintf(stderr, "vornsim: %s ('%s --help' explains)\n", why.c_str(), program.c_str());
  return kUsageError;
}

void AddControlOption(CLI::App& app, std::string& path) {
  app.add_option("--control", path, "Unix socket for commands (vornsim ctl)")
      ->envname("VORNSIM_CONTROL")
      ->type_name("PATH");
}

void AddOptions(CLI::App& app, sim::PROGRAM_OPTIONS& options, int& latencyTimerMs) {
  constexpr int kFastest = 12000000;
  app.add_option("--dev-dir", options.adapter.devDir, "folder for the ttyUSBn link")
      ->type_name("DIR")
      ->capture_default_str();
  app.add_option("--number", options.number, "the n of ttyUSBn")
      ->check(CLI::Range(0, 999))
      ->type_name("N")
      ->capture_default_str();
  app.add_option("--rack", options.rackFile, "rack description (XML) in place of the built-in one")
      ->type_name("FILE");
  AddControlOption(app, options.controlPath);
  app.add_option("--baud", options.adapter.baud, "pace the line: bits per second, 10 bits a byte")
      ->check(CLI::Range(50, kFastest))
      ->type_name("BAUD");
  app.add_option("--latency-timer", latencyTimerMs, "milliseconds that the USB chip adds")
      ->check(CLI::Range(0, 255))
      ->type_name("MS");
  app.add_option("--record", options.recordFile, "write a trace of the line")->type_name("FILE");
  app.add_option("--replay", options.replayFile, "answer from a trace in place of the rack")
      ->type_name("FILE");
  app.add_option("--script", options.scriptFile, "run timed commands: at 2.0 press 3.6")
      ->type_name("FILE");
  app.add_flag("--stay", options.stay, "go on when the standard input ends");
  app.add_flag("--plain", options.plain, "no picture and no line editing on a terminal");
}

int Run(int argc, char** argv) {
  sim::PROGRAM_OPTIONS options;
  int latencyTimerMs = 0;
  bool printRack = false;
  CLI::App app("vornsim: a simulated rack of cards behind a simulated serial adapter", "vornsim");
  app.set_version_flag("--version", "vornsim " VORN_VERSION);
  app.footer(kFooter);
  app.require_subcommand(0, 1);
  AddOptions(app, options, latencyTimerMs);
  app.add_flag("--print-rack", printRack, "print the built-in rack description and end");

  CLI::App* control = app.add_subcommand("ctl", "send one command to a running rack");
  std::string controlPath;
  AddControlOption(*control, controlPath);
  control->prefix_command();  // all behind the first word of the command belongs to it
  control->formatter(std::make_shared<CONTROL_HELP>());
  control->footer(kControlFooter);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) {
      return app.exit(error);  // help, or the version
    }
    return FailUsage(error.what(), *control ? "vornsim ctl" : "vornsim");
  }
  if (printRack) {
    std::fputs(sim::DefaultRackText(), stdout);
    return 0;
  }
  if (*control) {
    const std::vector<std::string> words = control->remaining();
    if (controlPath.empty()) {
      controlPath = options.controlPath;
    }
    if (words.empty() || controlPath.empty()) {
      return FailUsage("ctl needs --control PATH (or VORNSIM_CONTROL) and a command",
                       "vornsim ctl");
    }
    if (words.front().starts_with("-")) {
      return FailUsage("ctl has no option " + words.front(), "vornsim ctl");
    }
    return sim::RunControlClient(controlPath, words);
  }
  options.adapter.latencyTimer = std::chrono::milliseconds(latencyTimerMs);
  return sim::RunProgram(options);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "vornsim: %s\n", error.what());
    return 1;
  }
}
