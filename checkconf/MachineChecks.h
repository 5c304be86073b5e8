#pragma once

#include "checkconf/Findings.h"
#include "checkconf/User.h"
#include "vorn/config/ConfigDescriptor.h"

#include <cstdint>

namespace vorn::checkconf {

/// Where in the file the values stand that are checked against the machine.
struct PLACES {
  POSITION logFile;
  POSITION io;
  POSITION cae;
  POSITION mon;
};

/// Whether `user` could run the daemon with this configuration on this machine, as it is now: the
/// log can be written, the ports are free.
void CheckMachine(const CONFIG_DESCRIPTOR& config, const USER& user, const PLACES& places,
                  FINDINGS& findings);

}  // namespace vorn::checkconf
