#pragma once

#include <string>
#include <string_view>

namespace vorn::checkconf {

/// A text from outside as it may be shown: control characters, which a terminal would obey, as \r,
/// \n or \x1B; cut at 60 characters.
std::string Shown(std::string_view text);

/// The same between quotes.
std::string Quoted(std::string_view text);

}  // namespace vorn::checkconf
