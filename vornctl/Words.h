#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace ctl {

/// The words of a line of a batch or of the prompt: separated by blanks; what stands between
/// 'single' or "double" quotes, or behind a \, is taken as it is; # at the beginning of a word
/// begins a comment. Throws FAILURE, kUsage, where a quote is not closed.
std::vector<std::string> SplitWords(std::string_view line);

}  // namespace ctl
