#pragma once

#include <string_view>

namespace ctl {

/// Writes all of the text, waiting where the descriptor takes no more at the moment. 0, or the
/// number of the error.
int WriteAll(int descriptor, std::string_view text);

}  // namespace ctl
