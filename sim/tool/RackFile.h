#pragma once

#include "sim/rack/Rack.h"
#include "sim/rack/Result.h"

#include <string>

namespace sim {

/// The rack that is built in, as the text of a rack file with comments: a starting point for an own
/// one.
const char* DefaultRackText();

/// Fills an empty rack from the text of a rack file (XML). Nothing is plugged in unless all of it
/// is right; an error begins with "NAME:LINE:COLUMN: " and says what was expected.
RESULT LoadRack(const std::string& text, const std::string& name, RACK& rack);

/// The same from a file.
RESULT LoadRackFile(const std::string& path, RACK& rack);

/// The whole of a file; an error names it.
RESULT ReadTextFile(const std::string& path, std::string& text);

}  // namespace sim
