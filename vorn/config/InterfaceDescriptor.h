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

}  // namespace vorn
