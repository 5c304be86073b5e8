#pragma once

#include <span>

namespace vorn {

/// The lines of HELP, without line ends.
std::span<const char* const> QuickHelp();

/// The lines of IOEXAMPLES, without line ends.
std::span<const char* const> IoExamples();

}  // namespace vorn
