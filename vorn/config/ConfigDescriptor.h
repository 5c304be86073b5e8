#pragma once

#include "vorn/config/InterfaceDescriptor.h"

#include <cstdint>
#include <string>

namespace vorn {

/// The error text of a good configuration.
constexpr const char* kNoConfigError = "NONE";

/// The whole configuration, read once at start.
struct CONFIG_DESCRIPTOR {
  INTERFACE_DESCRIPTOR io;
  INTERFACE_DESCRIPTOR cae;
  INTERFACE_DESCRIPTOR mon;
  INTERFACE_DESCRIPTOR spare;  ///< never filled from the file
  std::string logFileName;     ///< empty: no log file
  std::int32_t logLevel = 0;
  std::string errorText = kNoConfigError;  ///< anything but "NONE": the configuration is unusable
  std::int32_t threadDelayUs = kDefaultThreadDelayUs;
  bool polling = false;
  bool autoDiscover = false;
};

}  // namespace vorn
