// docs/architecture.md: what may wait is what the daemon's table says, and who includes whom is
// what the document says.

#include "tests/docs/Markdown.h"
#include "vorn/base/Budget.h"

#include <gtest/gtest.h>

#include <map>
#include <set>

namespace vorn {

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

// --- layers -------------------------------------------------------------------------------------

using FOLDERS = std::set<std::string>;

std::string FolderOf(const std::string& path) {
  return path.substr(0, path.rfind('/') + 1);
}

/// By folder, those that the document lets it include.
std::map<std::string, FOLDERS> DocumentedIncludes() {
  std::map<std::string, FOLDERS> folders;
  for (const ROW& row : Tables(Section(ReadFile("docs/architecture.md"), "## The folders"))) {
    const LINES includes = CodeSpans(row.at(2));
    folders[CodeSpans(row.at(0)).at(0)] = FOLDERS(includes.begin(), includes.end());
  }
  return folders;
}

/// By folder, those that its sources do include, its own left out.
std::map<std::string, FOLDERS> FoundIncludes() {
  std::map<std::string, FOLDERS> folders;
  for (const char* const root : {"thread", "vorn", "checkconf", "sim"}) {
    for (const std::filesystem::path& source : Sources(root)) {
      const std::string folder = FolderOf(source);
      folders[folder];
      for (const std::string& line : SplitLines(ReadFile(source))) {
        constexpr std::string_view kInclude = "#include \"";
        if (line.starts_with(kInclude)) {
          const std::string included = FolderOf(line.substr(kInclude.size()));
          if (included != folder) {
            folders[folder].insert(included);
          }
        }
      }
    }
  }
  return folders;
}

TEST(ArchitectureDocument, HasTheLayersAsTheyAre) {
  const std::map<std::string, FOLDERS> documented = DocumentedIncludes();
  EXPECT_EQ(FoundIncludes(), documented);
  // No layer includes one that stands on it.
  for (const auto& [folder, includes] : documented) {
    for (const std::string& lower : includes) {
      EXPECT_FALSE(documented.at(lower).contains(folder)) << folder << " and " << lower;
      EXPECT_EQ(lower.starts_with("sim/"), folder.starts_with("sim/")) << folder;
    }
  }
}

}  // namespace
}  // namespace docs

}  // namespace vorn
