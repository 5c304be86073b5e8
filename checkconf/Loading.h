#pragma once

#include "checkconf/Findings.h"

#include <optional>
#include <string>

namespace vorn::checkconf {

/// No configuration has so many bytes; what has more is not read.
constexpr std::size_t kLargestFile = 1024UL * 1024;

/// The file's bytes; none, and a finding, when it is no file that can be read. Opens and waits for
/// nothing but a regular file.
std::optional<std::string> LoadText(const std::string& path, FINDINGS& findings);

}  // namespace vorn::checkconf
