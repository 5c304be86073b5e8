#include "tests/support/GoldenHelp.h"

#include "tests/support/Text.h"

#include <algorithm>

namespace {

/// The block of text under a heading.
std::vector<std::string> TextUnder(const std::string& heading) {
  const std::vector<std::string> lines = support::Lines(support::ReadFile(VORN_MANUAL));
  const auto begin =
      std::find(std::find(lines.begin(), lines.end(), heading), lines.end(), "```text");
  return begin == lines.end()
             ? std::vector<std::string>()
             : std::vector<std::string>(begin + 1, std::find(begin + 1, lines.end(), "```"));
}

}  // namespace

const std::vector<std::string> kQuickHelp = TextUnder("## HELP");
const std::vector<std::string> kIoExamples = TextUnder("## IOEXAMPLES");
