#pragma once

#include "checkconf/Element.h"

#include <cstdint>
#include <string>

namespace vorn::checkconf {

/// The value of an attribute of a child of the root; an attribute that the daemon does not know has
/// none.
void CheckSettingValue(const std::string& element, const ATTRIBUTE& attribute, CHECKING& checking);

/// Whether CheckSettingValue has a check for the attribute.
bool HasValueCheck(const std::string& element, const std::string& attribute);

/// What the daemon reads there. A finding when the text is not just that number.
std::int32_t ReadNumber(const ATTRIBUTE& attribute, CHECKING& checking);

}  // namespace vorn::checkconf
