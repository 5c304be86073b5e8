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

std::vector<ROW> FolderRows() {
  return Tables(Section(ReadFile("docs/architecture.md"), "## The folders"));
}

/// The folder of a source; of several that the document has in one row, the first.
std::string FolderOf(const std::string& path) {
  static const std::map<std::string, std::string> kTogether = [] {
    std::map<std::string, std::string> firsts;
    for (const ROW& row : FolderRows()) {
      const LINES folders = CodeSpans(row.at(0));
      for (const std::string& folder : folders) {
        firsts[folder] = folders.front();
      }
    }
    return firsts;
  }();
  const std::string folder = path.substr(0, path.rfind('/') + 1);
  const auto first = kTogether.find(folder);
  return first == kTogether.end() ? folder : first->second;
}

/// By folder, those that the document lets it include.
std::map<std::string, FOLDERS> DocumentedIncludes() {
  std::map<std::string, FOLDERS> folders;
  for (const ROW& row : FolderRows()) {
    const LINES includes = CodeSpans(row.at(2));
    folders[CodeSpans(row.at(0)).at(0)] = FOLDERS(includes.begin(), includes.end());
  }
  return folders;
}

/// What shares no code with what is of another family: each is a check on the others.
std::string FamilyOf(const std::string& folder) {
  if (folder.starts_with("sim/")) {
    return "simulator";
  }
  return folder.starts_with("client/") || folder.starts_with("vornctl/") ? "client" : "daemon";
}

/// By folder, those that its sources do include, its own left out.
std::map<std::string, FOLDERS> FoundIncludes() {
  std::map<std::string, FOLDERS> folders;
  for (const char* const root : {"thread", "vorn", "checkconf", "sim", "client", "vornctl"}) {
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
      EXPECT_EQ(FamilyOf(lower), FamilyOf(folder)) << folder;
    }
  }
}

}  // namespace
}  // namespace docs

}  // namespace vorn
