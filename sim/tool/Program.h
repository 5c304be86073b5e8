#pragma once

#include "sim/tool/Simulation.h"

#include <string>

namespace sim {

/// What the command line asked for.
struct PROGRAM_OPTIONS {
  ADAPTER_OPTIONS adapter;
  int number = 0;           // the n of ttyUSBn
  bool stay = false;        // go on when the standard input ends
  std::string rackFile;     // empty: the built-in rack
  std::string controlPath;  // of the control socket; empty: none
  std::string recordFile;   // empty: no trace is written
  std::string replayFile;   // empty: the rack answers
  std::string scriptFile;   // empty: no scenario
  bool plain = false;       // no picture and no line editing, even on a terminal
};

/// Runs vornsim until it is told to end; returns its exit status. The calling thread waits in one
/// poll loop for signals, input, events and clocks; SIGINT and SIGTERM end it.
int RunProgram(const PROGRAM_OPTIONS& options);

}  // namespace sim
