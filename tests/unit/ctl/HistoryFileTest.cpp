#include "tests/support/unit/Folder.h"
#include "vornctl/HistoryFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

namespace {

using ctl::HISTORY_FILE;
using vorn::unit::FOLDER;
using vorn::unit::ReadLines;
using vorn::unit::WriteFile;
using LINES = std::vector<std::string>;

LINES LinesOf(const HISTORY_FILE& file) {
  return {file.Lines().begin(), file.Lines().end()};
}

unsigned ModeOf(const std::string& path) {
  struct stat about {};
  return stat(path.c_str(), &about) == 0 ? about.st_mode & 07777U : 0U;
}

TEST(HistoryFile, ComesBackAsItWasTyped) {
  const FOLDER folder;
  const std::string path = folder.File("history");
  HISTORY_FILE first(path);
  EXPECT_TRUE(first.Add("cards"));
  EXPECT_TRUE(first.Add("set lamp=\u00E4n \\040 \u65E5"));
  first.Write();
  EXPECT_EQ(ReadLines(path), (LINES{"cards", "set lamp=\u00E4n \\040 \u65E5"}));
  EXPECT_EQ(LinesOf(HISTORY_FILE(path)), (LINES{"cards", "set lamp=\u00E4n \\040 \u65E5"}));
}

TEST(HistoryFile, IsForItsOwnerOnlyInFoldersThatAreToo) {
  const FOLDER folder;
  const std::string path = folder.File("state/vornctl/history");
  HISTORY_FILE file(path);
  file.Add("cards");
  file.Write();
  EXPECT_EQ(ModeOf(path), 0600U);
  EXPECT_EQ(ModeOf(folder.File("state/vornctl")), 0700U);
  EXPECT_EQ(ModeOf(folder.File("state")), 0700U);
}

TEST(HistoryFile, LeavesNothingElseInItsFolder) {
  const FOLDER folder;
  WriteFile(folder.File("history"), "old\n");
  HISTORY_FILE file(folder.File("history"));
  file.Add("new");
  file.Write();
  std::size_t entries = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder.Path())) {
    ++entries;
  }
  EXPECT_EQ(entries, 1U);
  EXPECT_EQ(ReadLines(folder.File("history")), (LINES{"old", "new"}));
}

TEST(HistoryFile, KeepsNeitherRepeatedNorEmptyNorIndentedLines) {
  HISTORY_FILE file("");
  EXPECT_TRUE(file.Add("a"));
  EXPECT_FALSE(file.Add("a"));
  EXPECT_FALSE(file.Add(""));
  EXPECT_FALSE(file.Add(" secret"));
  EXPECT_TRUE(file.Add("b"));
  EXPECT_TRUE(file.Add("a"));
  EXPECT_EQ(LinesOf(file), (LINES{"a", "b", "a"}));
}

TEST(HistoryFile, KeepsTheLastThousand) {
  const FOLDER folder;
  const std::string path = folder.File("history");
  std::string text;
  for (int i = 1; i <= 1500; ++i) {
    text += "line " + std::to_string(i) + "\n";
  }
  WriteFile(path, text);
  HISTORY_FILE file(path);
  ASSERT_EQ(file.Lines().size(), 1000U);
  EXPECT_EQ(file.Lines().front(), "line 501");
  file.Add("line 1501");
  EXPECT_EQ(file.Lines().size(), 1000U);
  EXPECT_EQ(file.Lines().front(), "line 502");
}

TEST(HistoryFile, TakesTheEndOfAFileThatIsTooLong) {
  const FOLDER folder;
  const std::string path = folder.File("history");
  WriteFile(path, std::string(2'000'000, 'x') + "y\nlast\n");
  EXPECT_EQ(LinesOf(HISTORY_FILE(path)), LINES{"last"});
}

TEST(HistoryFile, PassesOverWhatNobodyCouldHaveTyped) {
  const FOLDER folder;
  const std::string path = folder.File("history");
  WriteFile(path, "good\n\033[2Jbad\nno end");
  EXPECT_EQ(LinesOf(HISTORY_FILE(path)), (LINES{"good", "no end"}));
}

TEST(HistoryFile, IsNotWrittenWhereNothingIsNew) {
  const FOLDER folder;
  const std::string path = folder.File("history");
  const HISTORY_FILE file(path);
  file.Write();
  EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(HistoryFile, DoesNotReplaceWhatItCannotRead) {
  const FOLDER folder;
  const std::string path = folder.File("history");
  std::filesystem::create_directory(path);
  HISTORY_FILE file(path);
  file.Add("cards");
  file.Write();
  EXPECT_TRUE(std::filesystem::is_directory(path));
}

}  // namespace
