// The soak: drives the real daemon for as long as wanted, as script/soak tells. Leaves samples.txt,
// faults.txt, summary.txt and the daemon's log in a folder. The status is 0 when nothing grew,
// nothing died, and every client was answered.

#include "tests/soak/Soak.h"
#include "tests/support/PrivateRun.h"
#include "tests/support/Text.h"

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <exception>

namespace {

std::atomic<bool> stop{false};

/// Ctrl-C ends the run early, with all figures so far. The process that waits for the private one
/// goes on waiting.
void StopOnInterrupt() {
  struct sigaction action {};
  action.sa_handler = [](int) { stop = true; };
  action.sa_flags = SA_RESTART;
  sigaction(SIGINT, &action, nullptr);
}

/// The exit status: 0 where nothing failed.
int Run(int argc, char** argv) {
  soak::SOAK_OPTIONS options;
  int seconds = 0;
  CLI::App app("vorn_soak: the daemon under traffic and faults", "vorn_soak");
  app.add_option("--seconds", seconds, "how long")->required()->check(CLI::PositiveNumber);
  app.add_option("--seed", options.seed, "the order of the faults")->required();
  app.add_option("--folder", options.folder, "for what is left")
      ->required()
      ->check(CLI::ExistingDirectory);
  CLI11_PARSE(app, argc, argv);
  options.length = std::chrono::seconds(seconds);
  StopOnInterrupt();
  if (const int status = support::RunPrivately(argc, argv); status >= 0) {
    return status;
  }
  const std::vector<std::string> failures = soak::SOAK(options).Run(stop);
  std::fputs(support::ReadFile(options.folder + "/summary.txt").c_str(), stdout);
  return failures.empty() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "vorn_soak: %s\n", error.what());
    return 1;
  }
}
