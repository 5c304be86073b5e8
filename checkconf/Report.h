#pragma once

#include "checkconf/Check.h"

#include <string>

namespace vorn::checkconf {

/// The result for a person: a line per finding with what to do below it, a line on what the daemon
/// will do, and the verdict.
std::string TextReport(const std::string& path, const CHECK_RESULT& result);

/// The same for a program: one JSON object.
std::string JsonReport(const std::string& path, const CHECK_RESULT& result);

}  // namespace vorn::checkconf
