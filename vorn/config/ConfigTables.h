#pragma once

#include "vorn/config/ConfigDescriptor.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace vorn {

// The elements and attributes of the configuration file. The reader walks these tables; so do the
// checker, for what is known and what is not, and the test of the manual page.

/// The document's one element that is read; the elements below are its children.
constexpr const char* kRootElement = "VORNConfig";
/// Holds one child per TCP interface, of any element name.
constexpr const char* kInterfacesElement = "Interfaces";
/// `Interfaces` may hold this many children; further ones are ignored.
constexpr std::size_t kMaxInterfaces = 4;
constexpr std::int32_t kLowestPort = 1025;

/// An attribute of a child of the root.
struct CONFIG_SETTING {
  const char* element;
  const char* attribute;
  void (*apply)(CONFIG_DESCRIPTOR&, const std::string& value);
};
std::span<const CONFIG_SETTING> ConfigSettings();

/// An attribute of a child of `Interfaces`.
struct INTERFACE_ATTRIBUTE {
  const char* name;
  /// False when the value makes the configuration unusable: a port below kLowestPort.
  bool (*apply)(INTERFACE_DESCRIPTOR&, const std::string& value);
};
std::span<const INTERFACE_ATTRIBUTE> InterfaceAttributes();

/// An interface that the daemon serves; a child of `Interfaces` with another name is ignored.
struct INTERFACE_SLOT {
  const char* name;
  INTERFACE_DESCRIPTOR CONFIG_DESCRIPTOR::*slot;
};
std::span<const INTERFACE_SLOT> InterfaceSlots();

}  // namespace vorn
