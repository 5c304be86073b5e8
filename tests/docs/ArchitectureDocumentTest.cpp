// docs/architecture.md: what may wait is what the daemon's table says.

#include "tests/docs/Markdown.h"
#include "vorn/base/Budget.h"

#include <gtest/gtest.h>

namespace docs {
namespace {

TEST(ArchitectureDocument, HasTheBudgetAsTheDaemonHasIt) {
  std::vector<ROW> expected;
  for (const BUDGET_ROW& row : kBudget) {
    expected.push_back({row.what, std::to_string(row.queues),
                        std::to_string(row.shares * kBudgetShare / 1024) + " KiB", row.beyond});
  }
  const LINES section = Section(ReadFile("docs/architecture.md"), "## What may wait");
  std::vector<ROW> budget;
  for (const ROW& row : Tables(section)) {
    if (row.size() == 4) {
      budget.push_back(row);
    }
  }
  EXPECT_EQ(budget, expected);
  std::string text;
  for (const std::string& line : section) {
    text += line + ' ';
  }
  EXPECT_NE(text.find(std::to_string(MostWaitingBytes() / 1024) + " KiB of messages"),
            std::string::npos);
}

}  // namespace
}  // namespace docs
