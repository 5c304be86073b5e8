// The program itself: its options and its exit status.

#include "tests/support/Pattern.h"
#include "tests/unit/checkconf/Checked.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <set>
#include <stdexcept>

namespace vorn {

namespace {

using unit::FOLDER;
using unit::GoodConfig;
using unit::Replaced;

struct OUTCOME {
  int status;
  std::string output;
};

/// Runs the program by way of the shell, so that arguments may hold redirections.
OUTCOME RunChecker(const std::string& arguments) {
  const std::string command = VORN_CHECKCONF + (" " + arguments);
  FILE* const pipe = popen(command.c_str(), "re");
  if (pipe == nullptr) {
    throw std::runtime_error("cannot run " + command);
  }
  OUTCOME outcome{};
  std::array<char, 4096> chunk{};
  for (std::size_t count = 0; (count = fread(chunk.data(), 1, chunk.size(), pipe)) > 0;) {
    outcome.output.append(chunk.data(), count);
  }
  const int status = pclose(pipe);
  outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return outcome;
}

class Program : public testing::Test {
 protected:
  std::string File(const std::string& text) {
    unit::WriteFile(m_folder.File("vornconf.xml"), text);
    return m_folder.File("vornconf.xml");
  }
  std::string Good() { return GoodConfig(m_folder); }

  FOLDER m_folder;
};

TEST_F(Program, EndsWith0ForAGoodFile) {
  const OUTCOME outcome = RunChecker("--file-only " + File(Good()));
  EXPECT_EQ(outcome.status, 0);
  EXPECT_NE(outcome.output.find(": good\n"), std::string::npos);
}

TEST_F(Program, EndsWith0ForAWarningUnlessStrict) {
  const std::string file = File(Replaced(Good(), "<Speed", "<speed"));
  EXPECT_EQ(RunChecker("--file-only " + file).status, 0);
  EXPECT_EQ(RunChecker("--file-only --strict " + file).status, 1);
}

TEST_F(Program, EndsWith1ForABadFile) {
  EXPECT_EQ(RunChecker(File("<VORNConfig>")).status, 1);
  EXPECT_EQ(RunChecker(m_folder.File("none")).status, 1);
}

TEST_F(Program, EndsWith2ForAWrongCommandLine) {
  const std::string file = File(Good());
  EXPECT_EQ(RunChecker("--nonsense 2>&1").status, 2);
  EXPECT_EQ(RunChecker("--user 2>&1").status, 2);
  EXPECT_EQ(RunChecker(file + " " + file + " 2>&1").status, 2);
  const OUTCOME outcome = RunChecker("--user no-such-user-here " + file + " 2>&1");
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.output, "vorn-checkconf: there is no user no-such-user-here\n");
}

TEST_F(Program, WritesJsonOnRequest) {
  const OUTCOME outcome = RunChecker("--json --file-only " + File(Good()));
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output.front(), '{');
}

TEST_F(Program, TellsAReportThatCouldNotBeWritten) {
  const OUTCOME outcome = RunChecker("--file-only " + File(Good()) + " 2>&1 >/dev/full");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.output, "vorn-checkconf: the report could not be written\n");
}

TEST_F(Program, ExplainsItself) {
  const OUTCOME outcome = RunChecker("--help");
  EXPECT_EQ(outcome.status, 0);
  for (const char* option : {"--json", "--strict", "--file-only", "--user NAME", "--version"}) {
    EXPECT_NE(outcome.output.find(option), std::string::npos) << option;
  }
}

/// The words that follow the pattern in the text, such as the options behind "--".
std::set<std::string> Found(const std::string& text, const std::string& pattern) {
  std::set<std::string> words;
  for (const support::MATCH& match : support::PATTERN(pattern + "([a-z][a-z-]*)").FindAll(text)) {
    words.insert(match.parts[1]);
  }
  return words;
}

TEST_F(Program, HasTheOptionsOfItsManualPage) {
  std::ifstream page(VORN_CHECKCONF_MANUAL);
  std::set<std::string> listed;
  for (std::string line; std::getline(page, line);) {
    if (line.starts_with(".It Fl ")) {
      listed.merge(Found(line, " -"));
    }
  }
  EXPECT_GE(listed.size(), 6U);
  EXPECT_EQ(listed, Found(RunChecker("--help").output, "--"));
}

}  // namespace

}  // namespace vorn
