#pragma once

#include <cstddef>
#include <string_view>

namespace client {

/// Throws BAD_VALUE for what is not one line to the daemon: too long, or with a zero byte, a
/// carriage return or a line feed in it.
void CheckOneLine(std::string_view line, std::size_t longest);

}  // namespace client
