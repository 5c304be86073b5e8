#pragma once

#include "checkconf/Check.h"
#include "tests/support/unit/Folder.h"

#include <string>
#include <vector>

namespace vorn {

namespace unit {

/// A configuration without any finding; its log goes to `folder`.
std::string GoodConfig(const FOLDER& folder);

/// The text with its first `from` replaced. It must be there.
std::string Replaced(std::string text, const std::string& from, const std::string& to);

/// The result for a file with this text, for the user of this process.
checkconf::CHECK_RESULT Checked(const FOLDER& folder, const std::string& text,
                                bool checkMachine = false);

/// The findings as "12:5 port-too-low".
std::vector<std::string> Ids(const checkconf::CHECK_RESULT& result);

}  // namespace unit

}  // namespace vorn
