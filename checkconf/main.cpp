// vorn-checkconf: tells what is wrong with a configuration file.

#include "checkconf/Check.h"
#include "checkconf/Report.h"
#include "checkconf/User.h"

#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>
#include <optional>
#include <string>

namespace {

enum EXIT_STATUS : int { kGood = 0, kBad = 1, kUsage = 2 };

constexpr const char* kServiceUser = "vorn";

struct ARGUMENTS {
  std::string file = "/etc/vorn/vornconf.xml";
  std::string user;  // empty: none named
  bool json = false;
  bool strict = false;
  bool fileOnly = false;
};

/// The user named; else the service user, or, on a machine without one, whoever asks.
std::optional<vorn::checkconf::USER> UserOf(const ARGUMENTS& arguments) {
  if (!arguments.user.empty()) {
    return vorn::checkconf::FindUser(arguments.user);
  }
  const std::optional<vorn::checkconf::USER> service = vorn::checkconf::FindUser(kServiceUser);
  return service ? service : vorn::checkconf::CurrentUser();
}

int Run(const ARGUMENTS& arguments) {
  const std::optional<vorn::checkconf::USER> user = UserOf(arguments);
  if (!user) {
    std::cerr << "vorn-checkconf: there is no user " << arguments.user << std::endl;
    return kUsage;
  }
  const vorn::checkconf::CHECK_RESULT result =
      vorn::checkconf::CheckConfig(arguments.file, {*user, !arguments.fileOnly});
  std::cout << (arguments.json ? JsonReport(arguments.file, result)
                               : TextReport(arguments.file, result))
            << std::flush;
  if (!std::cout) {
    std::cerr << "vorn-checkconf: the report could not be written" << std::endl;
    return kBad;
  }
  using vorn::checkconf::SEVERITY;
  const bool bad = result.Count(SEVERITY::kError) > 0 ||
                   (arguments.strict && result.Count(SEVERITY::kWarning) > 0);
  return bad ? kBad : kGood;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    ARGUMENTS arguments;
    CLI::App app("Tells what the daemon vorn would make of a configuration file.",
                 "vorn-checkconf");
    app.add_option("FILE", arguments.file, "the file to check")->capture_default_str();
    app.add_flag("--json", arguments.json, "report as a JSON object");
    app.add_flag("--strict", arguments.strict, "a warning, too, makes the file a bad one");
    app.add_flag("--file-only", arguments.fileOnly,
                 "leave out what depends on this machine: the log folder, ports in use");
    app.add_option("--user", arguments.user,
                   "the user that runs the daemon (vorn, if there is such a user; else you)")
        ->option_text("NAME");
    app.set_version_flag("--version", std::string("vorn-checkconf ") + VORN_VERSION);
    app.footer("Exit status: 0 the file is good, 1 it is bad, 2 the command line is wrong.");
    try {
      app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
      return app.exit(error) == 0 ? kGood : kUsage;
    }
    return Run(arguments);
  } catch (const std::exception& error) {
    std::cerr << "vorn-checkconf: " << error.what() << std::endl;
    return kBad;
  }
}
