#pragma once

#include "checkconf/Findings.h"
#include "checkconf/User.h"
#include "vorn/config/ConfigDescriptor.h"

#include <cstddef>
#include <string>
#include <vector>

namespace vorn::checkconf {

struct CHECK_OPTIONS {
  USER user;                 ///< runs the daemon
  bool checkMachine = true;  ///< false: the file alone
};

struct CHECK_RESULT {
  std::vector<FINDING> findings;
  /// What the daemon's own reader makes of the file: its error text tells whether the daemon
  /// starts.
  CONFIG_DESCRIPTOR config;

  std::size_t Count(SEVERITY severity) const;
};

/// Checks a configuration file. Never throws; whatever is wrong with the file is a finding.
CHECK_RESULT CheckConfig(const std::string& path, const CHECK_OPTIONS& options);

}  // namespace vorn::checkconf
