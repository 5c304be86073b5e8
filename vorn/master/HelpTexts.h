#pragma once

#include <span>

/// The last words to a client that leaves with EXIT, on CAE and IO.
constexpr const char* kFarewell = "VORN: Bye Bye...";

/// So many seconds they have to reach the client before its connection is closed.
constexpr int kFarewellWaitS = 1;

/// The lines of HELP, without line ends.
std::span<const char* const> QuickHelp();

/// The lines of IOEXAMPLES, without line ends.
std::span<const char* const> IoExamples();
