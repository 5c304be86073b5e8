#include "vorn/tcp/InterfaceRoles.h"

#include <algorithm>
#include <iterator>

namespace vorn {

namespace {

constexpr char kCaeGreeting[] = "VORN CAE interface is ready\r\n(Type HELP for help)\r\n>\r\n";
constexpr char kIoGreeting[] = "VORN IO interface is ready\r\n";
constexpr char kMonGreeting[] = "VORN MON interface is ready\r\n";

// clang-format off
constexpr INTERFACE_ROLE kRoles[] = {
    // name  greeting      discarded  held back                  cut
    {"CAE",  kCaeGreeting, false,     MARK::kOperatorIsHeldBack, MARK::kLeftOperatorIsCut},
    {"IO",   kIoGreeting,  false,     MARK::kMachineIsHeldBack,  MARK::kLeftMachineIsCut},
    {"MON",  kMonGreeting, true,      MARK::kOperatorIsHeldBack, MARK::kLeftOperatorIsCut},
};

constexpr INTERFACE_ROLE kOtherRole =
    {"",     nullptr,      false,     MARK::kOperatorIsHeldBack, MARK::kLeftOperatorIsCut};
// clang-format on

}  // namespace

const INTERFACE_ROLE& RoleOf(const std::string& name) {
  const auto* const found =
      std::find_if(std::begin(kRoles), std::end(kRoles),
                   [&](const INTERFACE_ROLE& role) { return name == role.name; });
  return found == std::end(kRoles) ? kOtherRole : *found;
}

}  // namespace vorn
