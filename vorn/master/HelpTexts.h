#pragma once

#include <span>

/// The last words to a client that leaves with EXIT, on CAE and IO.
constexpr const char* kFarewell = "VORN: Bye Bye...";

/// The lines of HELP, without line ends.
std::span<const char* const> QuickHelp();

/// The lines of IOEXAMPLES, without line ends.
std::span<const char* const> IoExamples();
