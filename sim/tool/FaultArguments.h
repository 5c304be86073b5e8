#pragma once

#include "sim/line/Faults.h"

#include <string>
#include <vector>

namespace sim {

/// The fault that the words of a command name: a kind of kFaultTypes, its argument where it has
/// one, and what keeps it to a card, to a kind of request, or to a time. Throws ARGUMENT_ERROR.
FAULT ReadFault(const std::vector<std::string>& words);

}  // namespace sim
