#pragma once

#include "vorn/base/SharedField.h"
#include "vorn/base/Values.h"

#include <cstdint>
#include <string>

namespace vorn {

/// One TCP interface as configured; its worker keeps a copy of its own.
struct INTERFACE_DESCRIPTOR {
  std::string name;       ///< "IO", "CAE" or "MON" once configured
  std::int32_t port = 0;  ///< TCP port to listen on
  /// Not set from the file; the worker keeps its connection state here, which the master loop
  /// reads.
  SHARED_FIELD<std::int32_t> state = 0;
  std::string outSeparator = "\r\n";  ///< appended to lines that the interface sends
  std::string inpSeparator = "\r\n";  ///< ends a line that the interface receives
  /// Microseconds; read by the worker's thread every pass, set by the master loop at run time.
  SHARED_FIELD<std::int32_t> threadDelayUs = kDefaultThreadDelayUs;
};

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
